// SPDX-License-Identifier: MIT
// A frame whose planes stand apart, each in fenced memory of exactly its extent, at a pitch of its own.
#pragma once

#include <functional>
#include <optional>
#include <random>
#include <string>

#include "image/view.h"
#include "support/fence_buffer.h"
#include "tavi_frame.h"

namespace tavi::test {

struct FrameMemory {
    /// @param slack bytes from the end of a row to the next; plane i has i more of them.
    FrameMemory(int format, int width, int height, unsigned slack = 0, int rounding = TAVI_CHROMA_ROUNDS_UP,
                tavi_color_space_t color = {}) {
        frame.format = static_cast<tavi_pixel_format>(format);
        frame.width = static_cast<uint32_t>(width);
        frame.height = static_cast<uint32_t>(height);
        frame.chroma_rounding = rounding;
        frame.color = color;
        view = make_shape(*find_format(frame.format), width, height,
                          {static_cast<Matrix>(color.matrix), color.range == TAVI_RANGE_FULL}, !rounding);
        for (int i = 0; i < view.planes(); ++i) {
            PlaneView& p = view.plane[i];
            const size_t row = p.pitch;
            if (p.rows > 1)
                p.pitch += slack + i;
            memory[i].emplace(p.pitch * (p.rows - 1) + row, slack % 3);
            p.data = frame.plane[i].data = memory[i]->data();
            frame.plane[i].pitch = static_cast<uint32_t>(p.pitch);
        }
    }

    tavi_frame_t frame{};
    ImageView view; ///< planes in the order of the record
    std::optional<FenceBuffer> memory[3];

    size_t row_bytes(int i) const { return static_cast<size_t>(view.plane[i].cols) * view.plane[i].step; }

    FrameMemory& noise(unsigned seed) {
        return fill([random = std::mt19937(seed)](uint8_t& byte) mutable { byte = static_cast<uint8_t>(random()); });
    }
    /// Hands each byte of a row to `make`, in order.
    template <class Make>
    FrameMemory& fill(Make make) {
        for_rows([&](int i, uint8_t* row) { std::for_each(row, row + row_bytes(i), std::ref(make)); });
        return *this;
    }
    /// Its rows, one after the other.
    std::string pixels() const {
        std::string all;
        for_rows([&](int i, const uint8_t* row) { all.append(row, row + row_bytes(i)); });
        return all;
    }
    /// Whether what lies around the planes and between their rows is as it was.
    bool intact() const {
        bool all = true;
        for (int i = 0; i < view.planes(); ++i) {
            const PlaneView& p = view.plane[i];
            all = all && memory[i]->intact();
            for (int y = 0; y + 1 < p.rows; ++y)
                all = all && std::all_of(p.row(y) + row_bytes(i), p.row(y + 1), [](uint8_t b) { return b == 0xA5; });
        }
        return all;
    }

private:
    template <class Use>
    void for_rows(Use use) const {
        for (int i = 0; i < view.planes(); ++i)
            for (int y = 0; y < view.plane[i].rows; ++y)
                use(i, view.plane[i].row(y));
    }
};

inline std::string name_of(const FrameMemory& f) {
    return std::string(f.view.format->name) + " " + std::to_string(f.frame.width) + "x" +
           std::to_string(f.frame.height);
}

} // namespace tavi::test
