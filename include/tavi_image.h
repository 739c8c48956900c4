/* SPDX-License-Identifier: MIT */
/**
 * @file tavi_image.h
 * The public face of tavi image: image records, memory, conversion, regions, drawing, files, transforms.
 *
 * Everything here is synchronous and runs on the caller's thread. There is no initialisation call. Different
 * records may be used from different threads at once; one record or one pixel buffer must not be written by
 * two threads at the same time.
 *
 * Every function that returns `int` returns one of ::tavi_ret_t unless its comment says otherwise. Failures are
 * explained on the log (tag "tavi-image" for the module, "tavi-blit", "tavi-libyuv", "tavi-cpu", "tavi-mem" for
 * what lies below it); see tavi_logger.h for the level and for routing the lines elsewhere. "Silent" marks the few
 * that are not: a null argument that is cheaper to test than to explain, a trial that may well fail.
 *
 * The header compiles as C99 and as C++17. It is one file although it is long: a contract that is read from top to
 * bottom, most of it documentation.
 */
#ifndef TAVI_IMAGE_H
#define TAVI_IMAGE_H

#include <stddef.h>
#include <stdint.h>

#if defined(__GNUC__)
#define TAVI_API __attribute__((visibility("default")))
#else
#define TAVI_API
#endif

#ifdef __cplusplus
extern "C" {
#endif

/* ---------------------------------------------------------------------------------------------- result codes */

/** Results of every exported operation that returns an `int`. */
typedef enum tavi_ret_t {
    TAVI_RET_SUCCESS = 0,         /**< done */
    TAVI_RET_FAIL = -1,           /**< could not be done: file, memory, device, or a caller-owned buffer to release */
    TAVI_RET_PARAM_ERR = -2,      /**< a null, impossible or inconsistent argument */
    TAVI_RET_INVALID_HANDLE = -3, /**< a runtime handle that is null or has no context */
    TAVI_RET_UNSUPPORTED = -4     /**< well-formed, but not something the chosen backend does */
} tavi_ret_t;

/* --------------------------------------------------------------------------------------------- pixel formats */

/**
 * How the pixels of an image lie in memory. Rows are packed (no padding) and planes follow one another. Names
 * give the byte order in memory. Bytes of a w x h image, in integer arithmetic, as tavi_image_get_size() has it:
 *
 *     GRAY8 w*h    RGB/BGR 3*w*h    RGBA/BGRA 4*w*h    4:2:0 (3*w*h)/2    4:2:2 2*w*h    GRAY16 2*w*h
 *
 * YUV is BT.601 limited range unless the setting TAVI_YUV says otherwise, RGB and grey are full range. Chroma planes
 * of odd sizes are rounded down: floor(w/2) x floor(h/2) samples for 4:2:0, floor(w/2) x h for 4:2:2; the last odd
 * column or row shares its neighbour's chroma. A packed 4:2:2 row of odd width ends in the last pixel's luma byte and
 * a neutral 128.
 */
#ifdef __cplusplus
enum tavi_pixel_format : uint32_t {
#else
typedef uint32_t tavi_pixel_format;
enum {
#endif
    TAVI_PIXEL_FORMAT_GRAY8 = 0,          /**< 8-bit grey */
    TAVI_PIXEL_FORMAT_RGB888 = 1,         /**< R G B */
    TAVI_PIXEL_FORMAT_BGR888 = 2,         /**< B G R */
    TAVI_PIXEL_FORMAT_RGBA8888 = 3,       /**< R G B A */
    TAVI_PIXEL_FORMAT_BGRA8888 = 4,       /**< B G R A */
    TAVI_PIXEL_FORMAT_YUV420P_YU12 = 5,   /**< planes Y, U, V; chroma halved both ways (I420) */
    TAVI_PIXEL_FORMAT_YUV420P_YV12 = 6,   /**< planes Y, V, U */
    TAVI_PIXEL_FORMAT_YUV420SP_NV12 = 7,  /**< planes Y, interleaved U V */
    TAVI_PIXEL_FORMAT_YUV420SP_NV21 = 8,  /**< planes Y, interleaved V U */
    TAVI_PIXEL_FORMAT_YUV422P_YU16 = 9,   /**< planes Y, U, V; chroma halved across (I422) */
    TAVI_PIXEL_FORMAT_YUV422P_YV16 = 10,  /**< planes Y, V, U */
    TAVI_PIXEL_FORMAT_YUV422SP_NV16 = 11, /**< planes Y, interleaved U V */
    TAVI_PIXEL_FORMAT_YUV422SP_NV61 = 12, /**< planes Y, interleaved V U */
    TAVI_PIXEL_FORMAT_YUV422_YUYV = 13,   /**< packed Y U Y V */
    TAVI_PIXEL_FORMAT_YUV422_UYVY = 14,   /**< packed U Y V Y */
    TAVI_PIXEL_FORMAT_GRAY16 = 15         /**< 16-bit grey in the machine's byte order (little endian), 0 to 65535 */
};

/* -------------------------------------------------------------------------------------------------- records */

/**
 * One image. The caller owns the record; only tavi_image_clone2() allocates one. An all-zero record is an empty
 * image. Fill `pixel_format`, `width` and `height` first, then give it memory.
 */
typedef struct tavi_image_t {
    uint8_t* data;                  /**< first pixel byte; null when no CPU-visible memory */
    uint32_t size;                  /**< bytes behind `data`, informative: operations compute it afresh */
    uint8_t is_prealloc_buf;        /**< exactly 1: the buffer is the caller's, release refuses to free it */
    tavi_pixel_format pixel_format; /**< layout of the pixels */
    uint32_t width;                 /**< pixels per row */
    uint32_t height;                /**< rows */
    int32_t fd;                     /**< DMA buffer descriptor of device memory; 0 = none */
    void* data_phy;                 /**< physical address of the pixels; 0 = none */
} tavi_image_t;

/** A region in pixels. `right` and `bottom` are inclusive: width = right - left + 1. */
typedef struct tavi_rect_t {
    int32_t left;   /**< first column */
    int32_t top;    /**< first row */
    int32_t right;  /**< last column */
    int32_t bottom; /**< last row */
} tavi_rect_t;

/** A point in pixels, and for text the size of the glyphs. */
typedef struct tavi_point_t {
    int32_t x;    /**< column */
    int32_t y;    /**< row */
    int32_t size; /**< text: glyph height in pixels, 0 = 24; other shapes ignore it */
} tavi_point_t;

/** A full-range RGB colour; converted to the image's format when drawn. */
typedef struct tavi_color_t {
    uint8_t r; /**< red, 0 to 255 */
    uint8_t g; /**< green, 0 to 255 */
    uint8_t b; /**< blue, 0 to 255 */
} tavi_color_t;

/**
 * A quadrilateral for tavi_image_draw_quad(). Its outline runs p0, p1, p3, p2, p0: list an upright box as top-left,
 * top-right, bottom-left, bottom-right.
 */
typedef struct tavi_quad_t {
    tavi_point_t p0; /**< first corner, e.g. top-left */
    tavi_point_t p1; /**< joined to p0 and p3, e.g. top-right */
    tavi_point_t p2; /**< joined to p0 and p3, e.g. bottom-left */
    tavi_point_t p3; /**< joined to p1 and p2, e.g. bottom-right */
} tavi_quad_t;

/**
 * The transform applied during a conversion, after scaling to the size that the destination has before it.
 * Modes 4, 7 and 8 exchange width and height. Any other value is refused with TAVI_RET_UNSUPPORTED.
 */
typedef int32_t tavi_image_transform_mode;
enum {
    TAVI_IMAGE_TRANSFORM_NONE = 0,       /**< as it is */
    TAVI_IMAGE_TRANSFORM_FLIP_H = 1,     /**< left and right exchanged */
    TAVI_IMAGE_TRANSFORM_FLIP_V = 2,     /**< top and bottom exchanged */
    TAVI_IMAGE_TRANSFORM_ROTATE_180 = 3, /**< half a turn */
    TAVI_IMAGE_TRANSFORM_ROTATE_90 = 4,  /**< a quarter turn clockwise */
    TAVI_IMAGE_TRANSFORM_ROTATE_270 = 7, /**< a quarter turn anticlockwise */
    TAVI_IMAGE_TRANSFORM_TRANSPOSE = 8   /**< rows and columns exchanged */
};

/**
 * How pixels are interpolated when the size changes. Sample centres are at (i + 0.5) * ratio - 0.5 and edges are
 * replicated. Any other value is refused with TAVI_RET_PARAM_ERR.
 */
typedef int32_t tavi_image_resize_method_t;
enum {
    TAVI_IMAGE_RESIZE_DEFAULT = 0,  /**< per axis: box where it shrinks to less than half, else bilinear */
    TAVI_IMAGE_RESIZE_NEAREST = 1,  /**< the nearest sample */
    TAVI_IMAGE_RESIZE_BILINEAR = 2, /**< two samples an axis, weighted by distance */
    TAVI_IMAGE_RESIZE_BOX = 3       /**< the exact area average */
};

/* ------------------------------------------------------------------------------------------- record queries */

/**
 * Channels of the image's pixels.
 * @param img the record, may be null; only `pixel_format` is read.
 * @return 1 for grey, 3 for RGB/BGR, 4 for RGBA/BGRA; TAVI_RET_PARAM_ERR (-2) for a null record, for every YUV
 *         format (they have no channel count) and for a format above 15. Silent.
 */
TAVI_API int tavi_image_get_channels(tavi_image_t* img);

/**
 * Bytes of the image's pixels, by the rules at ::tavi_pixel_format.
 * @param img the record, may be null; `pixel_format`, `width` and `height` are read.
 * @return the byte count, formed in unsigned 32-bit arithmetic and returned as `int` (2 GiB or more reads as
 *         negative); TAVI_RET_PARAM_ERR (-2) for a null record or a format above 15. Silent.
 */
TAVI_API int tavi_image_get_size(tavi_image_t* img);

/* --------------------------------------------------------------------------------------------------- memory */

/**
 * Gives a described image device memory: tavi_image_create_mem2() with type 1.
 * @code
 * tavi_image_t img = {0};
 * img.pixel_format = TAVI_PIXEL_FORMAT_YUV420SP_NV12;
 * img.width = 640;
 * img.height = 480;
 * if (tavi_image_create_mem(&img) == TAVI_RET_SUCCESS) {
 *     memset(img.data, 128, img.size);
 *     tavi_image_release(&img);
 * }
 * @endcode
 */
TAVI_API int tavi_image_create_mem(tavi_image_t* img);

/**
 * Gives a described image memory from the memory service. Sets `data`, `size`, `fd` and `data_phy`; memory that
 * the record held before is not freed. Give it back with tavi_image_release() or tavi_image_destroy_mem().
 * @param img  the record, not null, with `pixel_format`, `width` and `height` set.
 * @param type 0 heap memory, 1 device memory, 2 physically contiguous device memory (see tavi_mem.h).
 * @return TAVI_RET_PARAM_ERR when the computed size is 0; otherwise the memory service's result. On failure the
 *         record is as it was.
 */
TAVI_API int tavi_image_create_mem2(tavi_image_t* img, int type);

/**
 * Frees memory that came from tavi_image_create_mem() or tavi_image_create_mem2(). Neither looks at
 * `is_prealloc_buf` nor clears the record. For memory of any origin use tavi_image_release().
 * @return TAVI_RET_PARAM_ERR for a null record (silent) or null `data`; otherwise the memory service's result.
 */
TAVI_API int tavi_image_destroy_mem(tavi_image_t* img);

/** A deep copy: tavi_image_clone2() with `deep_copy` 1. */
TAVI_API tavi_image_t* tavi_image_clone(tavi_image_t* src);

/**
 * A new record that describes the same image.
 * @param src       the image, may be null; it needs `data`.
 * @param deep_copy nonzero: the clone gets its own copy of the pixels on the heap, but keeps the source's `fd` and
 *                  `data_phy`, which go on naming the source's memory; 0: the pixels are shared.
 * @return the record, or null for a null source, null `data` or exhausted memory, all silent. The caller gives the
 *         pixels back with tavi_image_release() (of a shallow clone and its source, one of the two only) and the
 *         record itself with free(). Its `size` field is not set.
 */
TAVI_API tavi_image_t* tavi_image_clone2(tavi_image_t* src, int deep_copy);

/**
 * Frees an image's pixels, whichever allocator they came from. The record is not cleared: `data` is stale
 * afterwards, and a second release is the caller's error.
 * @return TAVI_RET_SUCCESS; TAVI_RET_PARAM_ERR for a null record or null `data`, silent; TAVI_RET_FAIL with a warning
 *         when `is_prealloc_buf` is 1 (nothing is freed); otherwise the memory service's result.
 */
TAVI_API int tavi_image_release(tavi_image_t* img);

/**
 * Allocates through the inference runtime behind `handle` (see tavi_mlrt.h); the arguments after it reach the
 * runtime unchanged.
 * @return the runtime's result; TAVI_RET_INVALID_HANDLE for a null handle or one without a context.
 */
TAVI_API int tavi_mem_alloc_from_mlrt(void* handle, void** memory, size_t size, int type);

/** Gives memory back to the inference runtime behind `handle`; otherwise like tavi_mem_alloc_from_mlrt(). */
TAVI_API int tavi_mem_free_from_mlrt(void* handle, void* memory, size_t size, int type);

/* ----------------------------------------------------------------------------------------------- conversion */

/**
 * Converts a whole image into another format and size, with a transform on the way. The blit engine does it when
 * both images are in device memory and formats, widths (multiples of 4) and the setting `use_blit` allow;
 * otherwise, and when the engine fails, software does.
 * @param src  source: `data`, a positive `fd` or `data_phy`.
 * @param dst  destination, described and given memory by the caller. In place (the same memory) works for equal
 *             sizes and equal bytes per pixel.
 * @param mode a ::tavi_image_transform_mode.
 * @return TAVI_RET_PARAM_ERR for a null record, a source or destination without memory, or memory that overlaps
 *         partly; TAVI_RET_UNSUPPORTED for an unknown mode or format, or a size that software cannot do (a side
 *         above 16384, or too small to have a chroma sample); otherwise the backend's result.
 * @code
 * tavi_image_t rgb = {0};
 * rgb.pixel_format = TAVI_PIXEL_FORMAT_RGB888;
 * rgb.width = 320;
 * rgb.height = 240;
 * tavi_image_create_mem(&rgb);
 * tavi_image_convert(&camera_frame, &rgb, TAVI_IMAGE_TRANSFORM_NONE);
 * @endcode
 */
TAVI_API int tavi_image_convert(tavi_image_t* src, tavi_image_t* dst, tavi_image_transform_mode mode);

/**
 * Letterbox in software: scales the source to the largest size of its own aspect ratio that fits into the
 * destination and pads the rest. See tavi_letterbox.h for mapping results back.
 * @param src    source, as for tavi_image_convert().
 * @param dst    destination, described and given memory by the caller.
 * @param param0 padding colour 0xRRGGBB, converted to the destination's format.
 * @param param1 where the picture stands: 0 centre, 1 top-left, 2 bottom-right.
 * @param out0   receives the horizontal scale, destination pixels per source pixel; may be null.
 * @param out1   receives the vertical scale; may be null.
 * @param out2   receives the left padding in pixels: x_dst = x_src * out0 + out2; may be null.
 * @param out3   receives the top padding in pixels; may be null.
 * @return TAVI_RET_PARAM_ERR for a null record or a source without memory, silent; otherwise the software backend's
 *         result.
 */
TAVI_API int tavi_image_convert_keep_ration(tavi_image_t* src, tavi_image_t* dst, int param0, int param1, float* out0,
                                            float* out1, float* out2, float* out3);

/**
 * Letterbox by the blit engine when it can and the setting `use_blit` is not 0, else in software. A failing engine
 * is not retried in software here. Records are not checked: both must be valid.
 * @param src           source.
 * @param dst           destination, described and given memory by the caller.
 * @param param0        padding colour, as above.
 * @param param1        position, as above.
 * @param out0          horizontal scale, as above.
 * @param out1          vertical scale, as above.
 * @param out2          left padding, as above.
 * @param out3          top padding, as above.
 * @param resize_method a ::tavi_image_resize_method_t, used by software only.
 * @param blit_option   reserved for the engine, 0.
 * @return the chosen backend's result.
 */
TAVI_API int tavi_image_convert_keep_ratio_by_method(tavi_image_t* src, tavi_image_t* dst, int param0, int param1,
                                                     float* out0, float* out1, float* out2, float* out3,
                                                     tavi_image_resize_method_t resize_method, int blit_option);

/**
 * Cuts a region out of an image, scales it to the destination's size and converts it to the destination's format,
 * in software. For YUV sources a private copy of the region is first aligned to even pixels.
 * @param src  source; not checked, must be valid.
 * @param rect region inside the source, inclusive; never modified.
 * @param dst  destination, described and given memory.
 * @param mode a ::tavi_image_transform_mode.
 * @return the result of the routine that failed, or of the last one.
 */
TAVI_API int tavi_image_crop_and_resize_cpu(tavi_image_t* src, tavi_rect_t* rect, tavi_image_t* dst,
                                            tavi_image_transform_mode mode);

/**
 * Cuts a region out of an image, scales and converts it: by the blit engine in one pass where it qualifies,
 * otherwise by tavi_image_crop_and_resize_cpu().
 * @param src     source with `data`.
 * @param src_roi region inside the source, inclusive.
 * @param dst     destination with memory; 1 to 4096 pixels a side.
 * @param dst_roi where the region lands when the engine serves the request, null = the whole destination; software
 *                always fills the whole destination.
 * @param mode    a ::tavi_image_transform_mode.
 * @return TAVI_RET_PARAM_ERR for a null argument (silent), a region outside the source (with a line at INFO only) or
 *         a destination size out of bounds; otherwise the result of the path taken.
 */
TAVI_API int tavi_image_convert_with_crop(tavi_image_t* src, tavi_rect_t* src_roi, tavi_image_t* dst,
                                          tavi_rect_t* dst_roi, tavi_image_transform_mode mode);

/* ------------------------------------------------------------------------------------------- region geometry */

/**
 * Snaps a region to the granularity of the hardware: width and height become multiples of `align_width`, left and
 * top multiples of `align_other`. A side grows to the next multiple when that fits into the image (measured from
 * the unmoved edge) and shrinks otherwise; the box is re-centred. The result may end outside the image or have
 * no width: test it before use.
 * @param img_width   image width in pixels.
 * @param img_height  image height in pixels.
 * @param src_rect    region to align.
 * @param align_width granularity of width and height, not 0.
 * @param align_other granularity of left and top, not 0.
 * @param dst_rect    receives the result; may be `src_rect`.
 * @return TAVI_RET_SUCCESS; TAVI_RET_PARAM_ERR for a granularity of 0, nothing written.
 *
 * Example: (101, 51, 300, 250) in 1920 x 1080 with 16 and 2 becomes (98, 48, 305, 255).
 */
TAVI_API int tavi_image_rect_align(int img_width, int img_height, tavi_rect_t* src_rect, int align_width,
                                   int align_other, tavi_rect_t* dst_rect);

/**
 * Grows or shrinks a region by fractions of its own size and keeps it inside the image.
 * @param img         supplies the bounds, `width` and `height`; needs no memory.
 * @param roi         region to grow.
 * @param expand_roi  receives the result; may be `roi`.
 * @param expand_area four fractions: left, top, right, bottom; negative moves an edge inward.
 * @return TAVI_RET_PARAM_ERR for a null argument, nothing written.
 *
 * Example: (100, 100, 199, 199) in 640 x 480 by {0.1, 0.2, 0.1, 0.3} becomes (90, 80, 209, 229).
 */
TAVI_API int tavi_image_rect_expand(tavi_image_t* img, tavi_rect_t* roi, tavi_rect_t* expand_roi, float* expand_area);

/**
 * Widens or heightens a region about its centre until width / height is `dst_ratio`, then keeps it inside the
 * image. Sizes are measured without the inclusive pixel: a side that does not grow comes out one pixel smaller.
 * @param img       supplies the bounds; needs `data` or a positive `fd`.
 * @param src_rect  region to fit.
 * @param dst_rect  receives the result; may be `src_rect`.
 * @param dst_ratio width divided by height, above 0.
 * @return TAVI_RET_PARAM_ERR for a null argument, a ratio of 0 or less, or an image without memory.
 *
 * Example: (100, 100, 299, 199) in 640 x 480 fitted to 1.0 becomes (100, 50, 298, 248).
 */
TAVI_API int tavi_image_rect_keep_ratio(tavi_image_t* img, tavi_rect_t* src_rect, tavi_rect_t* dst_rect,
                                        float dst_ratio);

/* ----------------------------------------------------------------------------------------- region extraction */

/**
 * Copies a region into a new image of its exact size and the source's format. For grey, RGB and RGBA formats only:
 * YUV formats have no channel count and are refused.
 * @param img     source with `data`.
 * @param roi     region inside the source, inclusive.
 * @param roi_img receives the image; cleared first. Its pixels are heap memory for tavi_image_release(); its
 *                `size` stays 0.
 * @return TAVI_RET_PARAM_ERR for a null argument (silent) or a region outside the image (with a line at INFO only),
 *         `roi_img` untouched; TAVI_RET_FAIL when there is no memory, and for a YUV image or a format above 15, whose
 *         missing channel count makes a size that no memory has: silent, `roi_img` described and without `data`.
 */
TAVI_API int tavi_image_roi_cpu(tavi_image_t* img, tavi_rect_t* roi, tavi_image_t* roi_img);

/**
 * Cuts a region into a new image whose sides are multiples of `align` (at least 4, for YUV sources at least 8) and
 * whose format is `dst_format`; the region is scaled to fill it.
 * @param img        source with `data` or a positive `fd`.
 * @param roi        region inside the source, inclusive.
 * @param roi_img    receives the image; cleared first. Its pixels are heap memory for tavi_image_release(), also
 *                   when the call fails with TAVI_RET_FAIL.
 * @param align      wanted granularity of the sides.
 * @param dst_format a ::tavi_pixel_format.
 * @return TAVI_RET_PARAM_ERR for a bad argument or a region outside the image (`roi_img` untouched); TAVI_RET_FAIL
 *         when the conversion failed, or when there is no memory or `dst_format` is none, both silent.
 */
TAVI_API int tavi_image_roi_with_align_cvt(tavi_image_t* img, tavi_rect_t* roi, tavi_image_t* roi_img, int align,
                                           int dst_format);

/** tavi_image_roi_with_align_cvt() into the source's own format. */
TAVI_API int tavi_image_roi_with_align(tavi_image_t* img, tavi_rect_t* roi, tavi_image_t* roi_img, int align);

/** tavi_image_roi_with_align() with `align` 1. */
TAVI_API int tavi_image_roi(tavi_image_t* img, tavi_rect_t* roi, tavi_image_t* roi_img);

/**
 * Converts a region into an image whose memory is already there: by the blit engine on a region aligned to 4 and 2
 * when both images have a positive `fd` and source sides allow, otherwise in software on the region as given.
 * @param in_img        source with `data` or a positive `fd`.
 * @param src_rect      region inside the source, inclusive.
 * @param roi_img       destination with `data`, size and format. When the engine serves the request and the
 *                      destination is larger than the aligned region, the region goes unscaled into the top-left
 *                      corner and `width`, `height` and `size` are rewritten.
 * @param dst_rect      where the region lands (engine only): an input when `keep_dst_rect` is nonzero, else an
 *                      output, written before the engine runs.
 * @param keep_dst_rect nonzero: use `dst_rect` as given.
 * @return TAVI_RET_PARAM_ERR for a bad argument or a region outside the image; otherwise the result of the path
 *         that finished.
 */
TAVI_API int tavi_image_roi_with_align_convert_prealloc(tavi_image_t* in_img, tavi_rect_t* src_rect,
                                                        tavi_image_t* roi_img, tavi_rect_t* dst_rect,
                                                        int keep_dst_rect);

/* -------------------------------------------------------------------------------------------------- drawing */
/*
 * Overlays are drawn in place on all sixteen formats and clipped to the image. `thickness` is the stroke width in
 * pixels; 0 counts as 1; below 0 fills a circle or rectangle. In chroma-subsampled formats a chroma sample takes the
 * colour when any pixel it covers does. All return TAVI_RET_PARAM_ERR for a null image or null `data`, silent, and
 * for an invalid format. A build without drawing answers TAVI_RET_UNSUPPORTED.
 */

/** Draws a circle of `radius` pixels (0 or more) about `center`. */
TAVI_API int tavi_image_draw_circle(tavi_image_t* img, tavi_point_t center, int radius, tavi_color_t color,
                                    int thickness);

/** Draws a line with round caps from `pt1` to `pt2`. */
TAVI_API int tavi_image_draw_line(tavi_image_t* img, tavi_point_t pt1, tavi_point_t pt2, tavi_color_t color,
                                  int thickness);

/** Draws the upright rectangle with opposite corners `pt1` and `pt2`, both inclusive. */
TAVI_API int tavi_image_draw_rect(tavi_image_t* img, tavi_point_t pt1, tavi_point_t pt2, tavi_color_t color,
                                  int thickness);

/** Draws the outline p0, p1, p3, p2, p0; the first edge that fails ends it, earlier edges stay drawn. */
TAVI_API int tavi_image_draw_quad(tavi_image_t* img, tavi_quad_t quad, tavi_color_t color, int thickness);

/**
 * Draws UTF-8 text with a built-in stroke font.
 * @param img       image to draw on.
 * @param text      not null; a line feed starts a new line, a character without a glyph shows a box.
 * @param pt        top-left corner of the first glyph's cell; `size` is the glyph height, 0 = 24.
 * @param color     colour of the strokes.
 * @param thickness stroke width in pixels.
 */
TAVI_API int tavi_image_draw_text(tavi_image_t* img, const char* text, tavi_point_t pt, tavi_color_t color,
                                  int thickness);

/* ---------------------------------------------------------------------------------------------------- files */

/** What tavi_image_read() turns a file into; one of the first four, plus TAVI_IMAGE_READ_IGNORE_ORIENTATION. */
enum {
    TAVI_IMAGE_READ_COLOR = 0,              /**< RGB888 */
    TAVI_IMAGE_READ_AS_STORED = 1,          /**< GRAY8, GRAY16, RGB888 or RGBA8888, whichever the file holds */
    TAVI_IMAGE_READ_GRAY = 2,               /**< GRAY8 */
    TAVI_IMAGE_READ_INTO_RECORD = 3,        /**< the record's own format, and its own size when both sides are set */
    TAVI_IMAGE_READ_IGNORE_ORIENTATION = 16 /**< added: do not apply the EXIF orientation */
};

/**
 * Reads a JPEG, PNG, BMP or PNM file; the type is known by its first bytes.
 * @param path      file to read.
 * @param img       receives the image. With `data` null the reader attaches heap memory for tavi_image_release();
 *                  with `is_prealloc_buf` 1 it decodes into `data`, and `size` bytes must be enough.
 * @param read_flag one of TAVI_IMAGE_READ_*.
 * @return TAVI_RET_PARAM_ERR for a null argument (silent), a bad flag or a buffer too small; TAVI_RET_UNSUPPORTED for
 *         a file type or variant that is not read (CMYK) or a picture above 16384 pixels a side or TAVI_MAX_PIXELS in
 *         all; TAVI_RET_FAIL for a file that cannot be opened or is damaged. On failure nothing stays attached.
 */
TAVI_API int tavi_image_read(const char* path, tavi_image_t* img, int read_flag);

/**
 * Writes an image of any format as .jpg/.jpeg (quality 95), .png, .bmp, .ppm or .pgm; what the file type cannot
 * hold is converted first. The file appears whole or not at all.
 * @param path file to write; its ending names the type.
 * @param img  image with `data`; not null.
 * @return TAVI_RET_UNSUPPORTED for an unknown ending; TAVI_RET_FAIL when it cannot be written, a full disk included.
 */
TAVI_API int tavi_image_write(const char* path, tavi_image_t* img);

/**
 * Writes exactly tavi_image_get_size() bytes of pixel memory, without a header. A short write is not reported.
 * @return TAVI_RET_PARAM_ERR for a null image or null `data`, silent; TAVI_RET_FAIL when the file cannot be opened,
 *         with a line at DEBUG only.
 */
TAVI_API int tavi_image_write_raw(const char* path, tavi_image_t* img);

/**
 * Writes the pixel bytes as text, one decimal number a line.
 * @return TAVI_RET_PARAM_ERR for a null image or null `data`, silent; TAVI_RET_FAIL when it cannot be written.
 */
TAVI_API int tavi_image_write_to_txt(const char* path, tavi_image_t* img);

/* ----------------------------------------------------------------------------------------------- transforms */

/**
 * Exchanges rows and columns.
 * @param src source with `data`.
 * @param dst destination with `data`, of the exchanged size and the same format.
 * @return TAVI_RET_PARAM_ERR for anything else.
 */
TAVI_API int tavi_image_transpose(tavi_image_t* src, tavi_image_t* dst);

/**
 * The affine map that takes `src` points to `dst` points.
 * @param src    `n` points as x0 y0 x1 y1 ...
 * @param dst    their images.
 * @param n      3 solves exactly; 2 and more than 3 give the least-squares similarity (rotation, uniform scale and
 *               shift; Umeyama 1991), which is what the alignment of faces and objects needs.
 * @param matrix receives 2 x 3 floats row by row: x' = m[0] x + m[1] y + m[2], y' = m[3] x + m[4] y + m[5].
 * @return TAVI_RET_PARAM_ERR for a null argument, fewer than 2 points, or points that do not determine a map.
 */
TAVI_API int tavi_get_affine_transform(const float* src, const float* dst, int n, float* matrix);

/**
 * Warps an image, sampling bilinearly; what lies outside the source becomes black.
 * @param src    source with `data`.
 * @param dst    destination with `data`, of the same format.
 * @param matrix 2 x 3 floats that map source to destination, as tavi_get_affine_transform() gives them.
 * @return TAVI_RET_PARAM_ERR for a null argument, differing formats, or a matrix that is singular or not a number.
 */
TAVI_API int tavi_image_affine_transform(tavi_image_t* src, tavi_image_t* dst, const float* matrix);

/* Placeholders. They keep their place in the interface and always fail, the first four silently; their parameters are
 * not read, except for the size of `img` where an image is named first. */

/** Always TAVI_RET_UNSUPPORTED. */
TAVI_API int tavi_get_rotation_matrix(tavi_point_t center, double angle, double scale, float* matrix);
/** Always TAVI_RET_UNSUPPORTED. */
TAVI_API int tavi_image_rotation_transform(tavi_image_t* src, tavi_image_t* dst, const float* matrix);
/** Always TAVI_RET_FAIL. */
TAVI_API int tavi_image_warp_perspective(tavi_image_t* src, tavi_image_t* dst, const float* matrix);
/** Always TAVI_RET_FAIL. */
TAVI_API int tavi_image_hconcat(tavi_image_t* left, tavi_image_t* right, tavi_image_t* dst);
/** Always TAVI_RET_FAIL, after a trial conversion of `img`, which must not be null. */
TAVI_API int tavi_image_equalize_hist(tavi_image_t* img, tavi_image_t* dst);
/** Always TAVI_RET_FAIL, after a trial conversion of `img`, which must not be null. */
TAVI_API int tavi_image_detect_occlusion(tavi_image_t* img, float* score);
/** Always TAVI_RET_FAIL. */
TAVI_API int tavi_image_border_fillblack(tavi_image_t* img, int border);

#ifdef __cplusplus
}
#endif

#endif /* TAVI_IMAGE_H */
