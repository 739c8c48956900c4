// SPDX-License-Identifier: MIT
#include "backends/blit/m2m_layout.h"

namespace tavi {
namespace {

/// The kernel's numbers and the standard's name of a matrix.
struct MatrixName {
    Matrix matrix;
    uint32_t encoding;
    uint32_t colorspace; ///< whose default it is
    const char* text;
};
constexpr MatrixName kMatrices[] = {{Matrix::bt601, V4L2_YCBCR_ENC_601, V4L2_COLORSPACE_SMPTE170M, "BT.601"},
                                    {Matrix::bt709, V4L2_YCBCR_ENC_709, V4L2_COLORSPACE_REC709, "BT.709"},
                                    {Matrix::bt2020, V4L2_YCBCR_ENC_BT2020, V4L2_COLORSPACE_BT2020, "BT.2020"}};

const MatrixName& name_of(Matrix matrix) {
    for (const MatrixName& row : kMatrices)
        if (row.matrix == matrix)
            return row;
    return kMatrices[0];
}

/// RGB and YUV are converted into each other by the colour fields; grey is copied whatever they say.
enum class Kind { plain, rgb, yuv };
Kind kind_of(const Side& side) {
    const Format& f = *find_format(side.format);
    return f.parts == 1 ? Kind::plain : f.whole_pixels() ? Kind::rgb : Kind::yuv;
}

/// The range stays at its default where that means what is wanted: limited for YUV, full for RGB. Drivers copy a
/// source's fields to the result, and an explicit "limited" of YUV would come back as limited RGB.
ColorFields fields_of(const Side& side, ColorSpace space) {
    const MatrixName& matrix = name_of(space.matrix);
    uint32_t colorspace = matrix.colorspace;
    if (kind_of(side) == Kind::rgb)
        colorspace = V4L2_COLORSPACE_SRGB;
    else if (space.full_range && space.matrix == Matrix::bt601)
        colorspace = V4L2_COLORSPACE_JPEG;
    return {colorspace, matrix.encoding, space.full_range ? V4L2_QUANTIZATION_FULL_RANGE : V4L2_QUANTIZATION_DEFAULT};
}

uint32_t encoding_of(const ColorFields& c) {
    return c.encoding ? c.encoding : static_cast<uint32_t>(V4L2_MAP_YCBCR_ENC_DEFAULT(c.colorspace));
}

uint32_t range_of(const ColorFields& c, bool rgb) {
    return c.range ? c.range
                   : static_cast<uint32_t>(V4L2_MAP_QUANTIZATION_DEFAULT(rgb, c.colorspace, encoding_of(c)));
}

uint32_t wanted_range(const Side& side, ColorSpace space) {
    return space.full_range || kind_of(side) == Kind::rgb ? V4L2_QUANTIZATION_FULL_RANGE
                                                          : V4L2_QUANTIZATION_LIM_RANGE;
}

Refusal compare_colors(const char* name, const Side& side, ColorSpace space, const ColorFields& got) {
    const Kind kind = kind_of(side);
    if (kind == Kind::plain)
        return {};
    const MatrixName& matrix = name_of(space.matrix);
    if (kind == Kind::yuv && encoding_of(got) != matrix.encoding)
        return Refusal(TAVI_RET_FAIL, "%s colour matrix: the engine uses %u, %u (%s) was asked for", name,
                       encoding_of(got), matrix.encoding, matrix.text);
    const uint32_t wanted = wanted_range(side, space), used = range_of(got, kind == Kind::rgb);
    if (used != wanted)
        return {TAVI_RET_FAIL, "%s colour range: the engine uses %u, %u (%s) was asked for", name, used,
                wanted,        wanted == V4L2_QUANTIZATION_FULL_RANGE ? "full" : "limited"};
    return {};
}

uint32_t pitch_of(const Side& side, const Format& f, int plane) {
    const uint32_t first = side.pitch ? side.pitch : static_cast<uint32_t>(side.width) * f.plane[0].step;
    return plane ? (first >> f.plane[plane].xshift) * f.plane[plane].step : first;
}

} // namespace

SidePlane plane_of(const Side& side, int plane) {
    const Format& f = *find_format(side.format);
    SidePlane p{};
    for (int i = 0; i <= plane; ++i) {
        p.offset = side.apart ? 0 : p.offset + p.pitch * p.rows;
        p.pitch = pitch_of(side, f, i);
        p.rows = static_cast<uint32_t>(side.height >> f.plane[i].yshift);
    }
    const PlaneRule& rule = f.plane[plane];
    const Box& b = side.box;
    p.buffer = side.apart ? plane : 0;
    p.left = static_cast<uint32_t>(b.x >> rule.xshift) * rule.step;
    p.right = static_cast<uint32_t>((b.x + b.width) >> rule.xshift) * rule.step;
    p.top = static_cast<uint32_t>(b.y >> rule.yshift);
    p.bottom = static_cast<uint32_t>((b.y + b.height) >> rule.yshift);
    return p;
}

uint64_t bytes_of(const Side& side, int buffer) {
    const SidePlane last = plane_of(side, side.apart ? buffer : find_format(side.format)->planes - 1);
    return last.offset + uint64_t{last.pitch} * last.rows;
}

Layout::Layout(const Side& side, ColorSpace space) : color(fields_of(side, space)) {
    fourcc = fourcc_of(side.format, side.apart);
    width = static_cast<uint32_t>(side.width);
    height = static_cast<uint32_t>(side.height);
    planes = static_cast<uint32_t>(side.buffers());
    for (uint32_t i = 0; i < planes; ++i) {
        pitch[i] = plane_of(side, static_cast<int>(i)).pitch;
        bytes[i] = static_cast<uint32_t>(bytes_of(side, static_cast<int>(i)));
    }
}

Layout::Layout(const v4l2_format& f, bool multiplanar) {
    if (multiplanar) {
        const v4l2_pix_format_mplane& p = f.fmt.pix_mp;
        fourcc = p.pixelformat, width = p.width, height = p.height, field = p.field;
        planes = p.num_planes;
        for (int i = 0; i < 2; ++i)
            pitch[i] = p.plane_fmt[i].bytesperline, bytes[i] = p.plane_fmt[i].sizeimage;
        color = {p.colorspace, p.ycbcr_enc, p.quantization};
    } else {
        const v4l2_pix_format& p = f.fmt.pix;
        fourcc = p.pixelformat, width = p.width, height = p.height, field = p.field;
        pitch[0] = p.bytesperline, bytes[0] = p.sizeimage;
        color = {p.colorspace, p.ycbcr_enc, p.quantization};
    }
}

v4l2_format Layout::to_v4l2(Queue queue, bool multiplanar) const {
    v4l2_format f{};
    f.type = buffer_type(queue, multiplanar);
    if (multiplanar) {
        v4l2_pix_format_mplane& p = f.fmt.pix_mp;
        p.pixelformat = fourcc, p.width = width, p.height = height, p.field = field;
        p.num_planes = static_cast<uint8_t>(planes);
        for (uint32_t i = 0; i < planes; ++i)
            p.plane_fmt[i].bytesperline = pitch[i], p.plane_fmt[i].sizeimage = bytes[i];
        p.colorspace = color.colorspace;
        p.ycbcr_enc = static_cast<uint8_t>(color.encoding), p.quantization = static_cast<uint8_t>(color.range);
        p.flags = static_cast<uint8_t>(flags);
    } else {
        v4l2_pix_format& p = f.fmt.pix;
        p.pixelformat = fourcc, p.width = width, p.height = height, p.field = field;
        p.bytesperline = pitch[0], p.sizeimage = bytes[0];
        p.priv = V4L2_PIX_FMT_PRIV_MAGIC; // without it the colour fields are not looked at
        p.colorspace = color.colorspace, p.ycbcr_enc = color.encoding, p.quantization = color.range;
        p.flags = flags;
    }
    return f;
}

void Layout::choose_colors(const Side& side, ColorSpace space, const EngineInfo& engine) {
    // Without the flag a driver takes the source's colours over and ignores these fields.
    if (engine.sets_matrix.has(side.format) || engine.sets_range.has(side.format))
        flags = V4L2_PIX_FMT_FLAG_SET_CSC;
    if (engine.sets_range.has(side.format))
        color.range = wanted_range(side, space);
}

Refusal compare_layout(Queue queue, const Side& side, ColorSpace space, const Layout& want, const Layout& got) {
    const char* const name = kQueueName[queue];
    if (got.fourcc != want.fourcc)
        return {TAVI_RET_FAIL, "%s format: the engine uses %.4s, %.4s was asked for", name,
                reinterpret_cast<const char*>(&got.fourcc), reinterpret_cast<const char*>(&want.fourcc)};
    if (got.width != want.width || got.height != want.height)
        return Refusal(TAVI_RET_FAIL, "%s size: the engine uses %ux%u, %ux%u was asked for", name, got.width,
                       got.height, want.width, want.height);
    if (got.field != V4L2_FIELD_NONE)
        return {TAVI_RET_FAIL, "%s field: the engine uses %u, %u (whole frames) was asked for", name, got.field,
                unsigned{V4L2_FIELD_NONE}};
    if (got.planes != want.planes)
        return {TAVI_RET_FAIL, "%s buffers: the engine uses %u, the image has %u", name, got.planes, want.planes};
    for (uint32_t i = 0; i < want.planes; ++i) {
        if (got.pitch[i] != want.pitch[i])
            return {TAVI_RET_FAIL, "%s row length: the engine uses %u bytes, the image has %u", name, got.pitch[i],
                    want.pitch[i]};
        if (got.bytes[i] < want.bytes[i])
            return {TAVI_RET_FAIL, "%s bytes: the engine uses %u, the image has %u", name, got.bytes[i],
                    want.bytes[i]};
    }
    return compare_colors(name, side, space, got.color);
}

} // namespace tavi
