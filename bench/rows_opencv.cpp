// SPDX-License-Identifier: MIT
#include <opencv2/imgproc.hpp>
#ifdef TAVI_BENCH_OPENCV_DNN
#include <opencv2/dnn.hpp>
#endif

#include "rows.h"
#include "tavi_frame.h"

namespace tavi::bench {
namespace {

cv::Mat mat(const std::shared_ptr<Picture>& p) {
    const int w = p->image.width, h = p->image.height;
    switch (static_cast<int>(p->image.pixel_format)) {
    case GRAY8:
        return {h, w, CV_8UC1, p->image.data};
    case GRAY16:
        return {h, w, CV_16UC1, p->image.data};
    case RGB:
    case BGR:
        return {h, w, CV_8UC3, p->image.data};
    case RGBA:
    case BGRA:
        return {h, w, CV_8UC4, p->image.data};
    case YUYV:
    case UYVY:
        return {h, w, CV_8UC2, p->image.data};
    default:
        return {h * 3 / 2, w, CV_8UC1, p->image.data};
    }
}

cv::Mat luma(const std::shared_ptr<Picture>& p) { return mat(p).rowRange(0, p->image.height); }
cv::Mat chroma(const std::shared_ptr<Picture>& p) {
    const int w = p->image.width, h = p->image.height;
    return {h / 2, w / 2, CV_8UC2, p->image.data + static_cast<size_t>(w) * h};
}

int color_code(int from, int to) {
    switch (from * 16 + to) {
    case NV12 * 16 + RGB:
        return cv::COLOR_YUV2RGB_NV12;
    case NV12 * 16 + BGR:
        return cv::COLOR_YUV2BGR_NV12;
    case NV12 * 16 + RGBA:
        return cv::COLOR_YUV2RGBA_NV12;
    case NV21 * 16 + RGB:
        return cv::COLOR_YUV2RGB_NV21;
    case YU12 * 16 + RGB:
        return cv::COLOR_YUV2RGB_I420;
    case YUYV * 16 + RGB:
        return cv::COLOR_YUV2RGB_YUY2;
    case UYVY * 16 + BGR:
        return cv::COLOR_YUV2BGR_UYVY;
    case BGR * 16 + YU12:
        return cv::COLOR_BGR2YUV_I420;
    case RGB * 16 + BGR:
        return cv::COLOR_RGB2BGR;
    case RGB * 16 + RGBA:
        return cv::COLOR_RGB2RGBA;
    case RGB * 16 + GRAY8:
        return cv::COLOR_RGB2GRAY;
    case GRAY8 * 16 + RGB:
        return cv::COLOR_GRAY2RGB;
    }
    return -1;
}

Run letterbox(const Row& row, int filter) {
    const auto pad = [=](cv::Mat& d) {
        d.rowRange(0, 140).setTo(cv::Scalar::all(0x72));
        d.rowRange(500, 640).setTo(cv::Scalar::all(0x72));
    };
    if (int(row.src->image.pixel_format) == RGB)
        return [=] {
            cv::Mat d = mat(row.dst), picture = d.rowRange(140, 500);
            cv::resize(mat(row.src), picture, picture.size(), 0, 0, filter);
            pad(d);
        };
    auto small = std::make_shared<Picture>(NV12, 640, 360);
    return [=] {
        cv::Mat y = luma(small), uv = chroma(small), d = mat(row.dst), picture = d.rowRange(140, 500);
        cv::resize(luma(row.src), y, y.size(), 0, 0, filter);
        cv::resize(chroma(row.src), uv, uv.size(), 0, 0, filter);
        cv::cvtColorTwoPlane(y, uv, picture, cv::COLOR_YUV2RGB_NV12);
        pad(d);
    };
}

// The letterbox, and then its blob.
Run tensor(const Row& row, int filter) {
#ifdef TAVI_BENCH_OPENCV_DNN
    const Run boxed = letterbox(row, filter);
    auto blob = std::make_shared<cv::Mat>();
    if (row.element == TAVI_TENSOR_FLOAT32)
        return [=] {
            boxed();
            cv::dnn::blobFromImage(mat(row.dst), *blob, 1 / 255.);
        };
    auto elements = std::make_shared<cv::Mat>();
    return [=] {
        boxed();
        cv::dnn::blobFromImage(mat(row.dst), *blob, 1, cv::Size(), cv::Scalar(), false, false, CV_8U);
        blob->convertTo(*elements, CV_8S, 1, -128);
    };
#else
    (void)row, (void)filter; // nothing of OpenCV's makes one
    return {};
#endif
}

Run transform(const Row& row) {
    const auto apply = [mode = row.mode](const cv::Mat& s, cv::Mat d) {
        if (mode == 8)
            cv::transpose(s, d);
        else if (mode == 1 || mode == 2)
            cv::flip(s, d, mode == 1);
        else
            cv::rotate(s, d,
                       mode == 4   ? cv::ROTATE_90_CLOCKWISE
                       : mode == 3 ? cv::ROTATE_180
                                   : cv::ROTATE_90_COUNTERCLOCKWISE);
    };
    if (int(row.src->image.pixel_format) == NV12)
        return [=] {
            apply(luma(row.src), luma(row.dst));
            apply(chroma(row.src), chroma(row.dst));
        };
    return [=] { apply(mat(row.src), mat(row.dst)); };
}

Run draw(const Row& row) {
    const bool planes = int(row.dst->image.pixel_format) == NV12;
    const auto on = [shape = row.shape](cv::Mat m, int k, const cv::Scalar& color, int thickness) {
        for (int i = 0; i < (shape == 4 ? 20 : 100); ++i) {
            const Shape s = shape_of(i, 1920, 1080);
            const cv::Point a(s.x0 / k, s.y0 / k), b(s.x1 / k, s.y1 / k);
            if (shape == 0)
                cv::rectangle(m, a, b, color, thickness);
            else if (shape == 1)
                cv::line(m, a, b, color, thickness);
            else if (shape == 2)
                cv::circle(m, a, s.radius / k, color, thickness);
            else if (shape == 3)
                cv::circle(m, a, s.radius / k, color, cv::FILLED);
            else
                cv::putText(m, "person 0.93", a, cv::FONT_HERSHEY_SIMPLEX, 0.8 / k, color, thickness);
        }
    };
    if (!planes)
        return [=] { on(mat(row.dst), 1, {255, 64, 0}, 2); };
    return [=] {
        on(luma(row.dst), 1, {120}, 2);
        on(chroma(row.dst), 2, {90, 200}, 1);
    };
}

} // namespace

Run by_opencv(const Row& row) {
    cv::setNumThreads(1);
    const int from = row.src->image.pixel_format, to = row.dst->image.pixel_format;
    const int filter = row.method == TAVI_IMAGE_RESIZE_BOX ? cv::INTER_AREA : cv::INTER_LINEAR;
    const cv::Size size(row.dst->image.width, row.dst->image.height);
    switch (row.kind) {
    case Kind::convert: {
        const int code = color_code(from, to);
        if (code < 0)
            return {};
        return [=] {
            cv::Mat d = mat(row.dst);
            cv::cvtColor(mat(row.src), d, code);
        };
    }
    case Kind::resize: {
        if (from == to && from == NV12)
            return [=] {
                cv::Mat y = luma(row.dst), uv = chroma(row.dst);
                cv::resize(luma(row.src), y, y.size(), 0, 0, filter);
                cv::resize(chroma(row.src), uv, uv.size(), 0, 0, filter);
            };
        if (from == to)
            return [=] {
                cv::Mat d = mat(row.dst);
                cv::resize(mat(row.src), d, size, 0, 0, filter);
            };
        if (from == NV12 && to == RGB) {
            auto small = std::make_shared<Picture>(NV12, size.width, size.height);
            return [=] {
                cv::Mat y = luma(small), uv = chroma(small), d = mat(row.dst);
                cv::resize(luma(row.src), y, y.size(), 0, 0, filter);
                cv::resize(chroma(row.src), uv, uv.size(), 0, 0, filter);
                cv::cvtColorTwoPlane(y, uv, d, cv::COLOR_YUV2RGB_NV12);
            };
        }
        return {};
    }
    case Kind::crop: {
        const cv::Rect r(row.region.left, row.region.top, row.region.right - row.region.left + 1,
                         row.region.bottom - row.region.top + 1);
        if (from == RGB)
            return [=] {
                cv::Mat d = mat(row.dst);
                if (r.size() == size)
                    mat(row.src)(r).copyTo(d);
                else
                    cv::resize(mat(row.src)(r), d, size, 0, 0, cv::INTER_LINEAR);
            };
        auto small = std::make_shared<Picture>(NV12, size.width, size.height);
        return [=] {
            cv::Mat y = luma(small), uv = chroma(small), d = mat(row.dst);
            cv::resize(luma(row.src)(r), y, y.size(), 0, 0, cv::INTER_LINEAR);
            cv::resize(chroma(row.src)(cv::Rect(r.x / 2, r.y / 2, r.width / 2, r.height / 2)), uv, uv.size(), 0, 0,
                       cv::INTER_LINEAR);
            cv::cvtColorTwoPlane(y, uv, d, cv::COLOR_YUV2RGB_NV12);
        };
    }
    case Kind::letterbox:
        return letterbox(row, filter);
    case Kind::tensor:
        return tensor(row, filter);
    case Kind::transform:
        return transform(row);
    case Kind::affine:
        return [=] {
            cv::Mat d = mat(row.dst);
            const cv::Mat m(2, 3, CV_32F, const_cast<float*>(row.matrix));
            cv::warpAffine(mat(row.src), d, m, size);
        };
    case Kind::draw:
        return draw(row);
    }
    return {};
}

} // namespace tavi::bench
