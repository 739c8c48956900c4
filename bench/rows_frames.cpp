// SPDX-License-Identifier: MIT
// The same requests through frames, on the calling thread and on two, and those that only frames can say: tensors.
#include "rows.h"
#include "tavi_frame.h"
#include "thread_pool.h"

namespace tavi::bench {
namespace {

tavi_frame_t frame_of(const Picture& p) {
    tavi_frame_t frame;
    tavi_frame_from_image(&p.image, &frame);
    return frame;
}

Run through_frames(const Row& row, const tavi_executor_t* executor) {
    const tavi_frame_t src = frame_of(*row.src), dst = frame_of(*row.dst);
    tavi_frame_options_t options = {};
    options.executor = executor;
    options.filter = row.method;
    options.pad_color = 0x727272;
    switch (row.kind) {
    case Kind::transform:
        options.transform = row.mode;
        break;
    case Kind::crop:
        options.filter = TAVI_FILTER_DEFAULT;
        options.crop = {row.region.left, row.region.top, row.region.right - row.region.left + 1,
                        row.region.bottom - row.region.top + 1};
        break;
    case Kind::letterbox:
    case Kind::tensor:
        options.fit = TAVI_FIT_CONTAIN;
        break;
    case Kind::convert:
    case Kind::resize:
        break;
    default:
        return {};
    }
    if (row.kind != Kind::tensor)
        return [=, keep = row] { tavi_frame_convert(&src, &dst, &options, nullptr); };
    auto memory = std::make_shared<std::vector<float>>(3 * size_t{dst.width} * dst.height);
    tavi_tensor_t tensor = {};
    tensor.data = memory->data();
    tensor.element = row.element;
    tensor.width = dst.width, tensor.height = dst.height;
    for (float& s : tensor.scale)
        s = row.element == TAVI_TENSOR_FLOAT32 ? 1 / 255.f : 1;
    tensor.zero_point = row.element == TAVI_TENSOR_INT8 ? -128 : 0;
    return [=, keep = row, pixels = memory] { tavi_frame_to_tensor(&src, &tensor, &options, nullptr); };
}

} // namespace

Run by_frames(const Row& row) { return row.kind == Kind::tensor ? Run() : through_frames(row, nullptr); }

Run by_two_threads(const Row& row) {
    static ThreadPool pool(2);
    return through_frames(row, &pool.executor);
}

Run tensor_by_frames(const Row& row) { return through_frames(row, nullptr); }

} // namespace tavi::bench
