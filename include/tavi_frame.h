/* SPDX-License-Identifier: MIT */
/**
 * @file tavi_frame.h
 * Frames: pictures as cameras, decoders, compositors and numeric arrays hand them over. A tavi_image_t is one tight
 * buffer; a frame has a pitch and memory of its own for each plane, says what its YUV samples mean, and may have its
 * chroma rounded up. One call converts, crops, scales, letterboxes and turns it, into another frame or into the
 * input of a network.
 *
 * Everything is synchronous. Work runs on the caller's thread, or on threads that the caller lends through a
 * tavi_executor_t; the bytes are the same either way. Different frames may be used from different threads at once;
 * frames that share a DMA buffer count as one while the engine writes one of them.
 *
 * Every function that returns `int` returns one of ::tavi_ret_t. A refusal names the field, its value and what is
 * allowed, on the log and in tavi_last_error() (tavi_log.h), and nothing has been written then.
 *
 * @code
 * tavi_frame_t camera = {0}, input = {0};
 * camera.format = TAVI_PIXEL_FORMAT_YUV420SP_NV12;
 * camera.width = 1366, camera.height = 768;
 * camera.plane[0].data = luma, camera.plane[0].pitch = 1408; // rows are longer than the picture is wide
 * camera.plane[1].data = chroma, camera.plane[1].pitch = 1408;
 * camera.color.matrix = TAVI_MATRIX_BT709;
 * input.format = TAVI_PIXEL_FORMAT_RGB888;
 * input.width = input.height = 224;
 * input.plane[0].data = pixels, input.plane[0].pitch = 3 * 224;
 * tavi_frame_options_t options = {0};
 * options.fit = TAVI_FIT_CONTAIN;
 * int ret = tavi_frame_convert(&camera, &input, &options, NULL);
 * @endcode
 *
 * The header compiles as C99 and as C++17.
 */
#ifndef TAVI_FRAME_H
#define TAVI_FRAME_H

#include "tavi_image.h"

#ifdef __cplusplus
extern "C" {
#endif

/* ------------------------------------------------------------------------------------------------- version */

#define TAVI_VERSION_MAJOR 1
#define TAVI_VERSION_MINOR 1
#define TAVI_VERSION_PATCH 0
/** The version as one number that grows: 10100 for 1.1.0. */
#define TAVI_VERSION_NUMBER (TAVI_VERSION_MAJOR * 10000 + TAVI_VERSION_MINOR * 100 + TAVI_VERSION_PATCH)

/** The version of the library that is running, as text: "1.1.0". Never null. */
TAVI_API const char* tavi_version(void);

/* ------------------------------------------------------------------------------------------------- records */

/**
 * Where one plane lies. `data` is what the processor sees; `fd` and `offset` are what the engine sees, and what is
 * mapped for the call where `data` is null. With both, they name the same memory, and `data` is used for processor
 * work.
 */
typedef struct tavi_plane_t {
    uint8_t* data;   /**< first byte of the plane; null: reached through `fd` */
    int32_t fd;      /**< descriptor of the DMA buffer that holds the plane; 0 = none */
    uint32_t offset; /**< bytes from the start of that buffer to the plane */
    uint32_t pitch;  /**< bytes from the start of one row to that of the next: from a row's length to 2^28 */
} tavi_plane_t;

/** Luma coefficients of YUV: ITU-R BT.601, BT.709, or BT.2020 with non-constant luminance. */
typedef int32_t tavi_matrix_t;
enum { TAVI_MATRIX_BT601 = 0, TAVI_MATRIX_BT709 = 1, TAVI_MATRIX_BT2020 = 2 };

/** What the samples span: luma 16 to 235 and chroma 16 to 240, or both 0 to 255. */
typedef int32_t tavi_range_t;
enum { TAVI_RANGE_LIMITED = 0, TAVI_RANGE_FULL = 1 };

/**
 * Where a chroma sample stands among the luma samples that it covers: in their middle (JPEG, MPEG-1), at the left
 * ones and in the middle between the rows (MPEG-2, H.264), or at the top left one (BT.2020). Scaling samples chroma
 * accordingly between YUV frames, and where YUV gets smaller on its way to RGB; so does a crop that starts between
 * chroma samples, at any size. All else gives each pixel the sample that covers it, and each sample the mean of its
 * pixels, whatever the siting: a conversion without scaling, YUV that is enlarged into RGB, RGB into YUV.
 */
typedef int32_t tavi_siting_t;
enum { TAVI_SITING_CENTRE = 0, TAVI_SITING_LEFT = 1, TAVI_SITING_TOP_LEFT = 2 };

/**
 * What the YUV samples of a frame mean. All zero is what a tavi_image_t means by default: BT.601, limited range,
 * centred chroma. RGB and grey frames are full range: their fields are not looked at. Grey is luma as it is stored:
 * YUV to grey copies luma, grey to YUV stores it with neutral chroma. RGB to grey is full-range BT.601 luma.
 */
typedef struct tavi_color_space_t {
    tavi_matrix_t matrix;
    tavi_range_t range;
    tavi_siting_t siting;
} tavi_color_space_t;

/** How the chroma of odd sides is counted: rounded up as everywhere, or down as a tavi_image_t has it. */
typedef int32_t tavi_chroma_rounding_t;
enum { TAVI_CHROMA_ROUNDS_UP = 0, TAVI_CHROMA_ROUNDS_DOWN = 1 };

/**
 * A picture in memory that somebody else owns, or that tavi_frame_create() gave it. A zero-initialised record with
 * format, size and planes is a valid frame. The planes stand in the order of the format's name: Y U V in YU12, Y V U
 * in YV12. Rows, with w and h the sides and c = (w + 1) / 2, or w / 2 where chroma rounds down:
 *
 *     GRAY8 w bytes    GRAY16 2w    RGB, BGR 3w    RGBA, BGRA 4w    YUYV, UYVY 4c, or 2w where chroma rounds down
 *     planar: luma w, chroma c each    semi-planar: luma w, chroma 2c
 *
 * 4:2:0 has (h + 1) / 2 rows of chroma, or h / 2; all else h. Bytes between the end of a row and the next row are
 * neither read nor written (around an engine's job they are put back), nor is the padding behind the last row
 * expected to be there. In packed 4:2:2 of odd width that rounds up the second luma of the last pair is not read, and
 * written as a copy of the first.
 */
typedef struct tavi_frame_t {
    tavi_pixel_format format;               /**< layout of the pixels */
    uint32_t width;                         /**< pixels per row, 1 to 16384 */
    uint32_t height;                        /**< rows, 1 to 16384 */
    tavi_plane_t plane[3];                  /**< as many as the format has; the others are not looked at */
    tavi_color_space_t color;               /**< of YUV formats */
    tavi_chroma_rounding_t chroma_rounding; /**< of odd sides, subsampled formats */
    uint32_t reserved[8];                   /**< zero */
} tavi_frame_t;

/** A rectangle in pixels of luma; all zero means everything. */
typedef struct tavi_box_t {
    int32_t x;      /**< first column */
    int32_t y;      /**< first row */
    int32_t width;  /**< columns */
    int32_t height; /**< rows */
} tavi_box_t;

/**
 * How samples are made when the size changes. The first four are the methods of tavi_image_resize_method_t. The last
 * four widen with the ratio when shrinking (antialiasing), as training pipelines resize.
 */
typedef int32_t tavi_filter_t;
enum {
    TAVI_FILTER_DEFAULT = 0,  /**< per axis: box below one half, bilinear above */
    TAVI_FILTER_NEAREST = 1,  /**< the nearest sample */
    TAVI_FILTER_BILINEAR = 2, /**< two samples an axis, whatever the ratio */
    TAVI_FILTER_BOX = 3,      /**< exact area average; enlarging: the samples under each pixel */
    TAVI_FILTER_BICUBIC = 4,  /**< Catmull-Rom, four samples an axis, more when shrinking */
    TAVI_FILTER_LANCZOS3 = 5, /**< windowed sinc, six samples an axis, more when shrinking */
    TAVI_FILTER_TRIANGLE = 6, /**< two samples an axis, more when shrinking: their bilinear */
    TAVI_FILTER_MEAN = 7      /**< the mean of the samples whose centres lie under a pixel: their box */
};

/** How the source (or its crop) fills the place in the destination when their ratios differ. */
typedef int32_t tavi_fit_t;
enum {
    TAVI_FIT_STRETCH = 0, /**< each side by its own factor */
    TAVI_FIT_CONTAIN = 1, /**< all of it with its ratio kept, centred, the rest in `pad_color`: a letterbox */
    TAVI_FIT_COVER = 2    /**< the ratio kept and all of the place filled: what is too much is cut off evenly */
};

/** Whether the engine works: where it can, or not at all, or nobody else. */
typedef int32_t tavi_engine_use_t;
enum {
    TAVI_ENGINE_MAY = 0,  /**< the engine where it can, else software */
    TAVI_ENGINE_MUST = 1, /**< the engine or TAVI_RET_UNSUPPORTED */
    TAVI_ENGINE_NEVER = 2 /**< software */
};

/**
 * Threads that the caller lends. `run` calls job(context, i) once for each i from 0 to count - 1, in any order and on
 * any threads, and returns when all of them have returned. It may run all of them itself.
 */
typedef struct tavi_executor_t {
    void (*run)(void* user, void (*job)(void* context, int32_t index), void* context, int32_t count);
    void* user;
    int32_t concurrency; /**< how many jobs run at a time; 0 is taken as 4 */
} tavi_executor_t;

/** What a conversion does beyond copying pixels. All zero: everything to everything, stretched, default filter. */
typedef struct tavi_frame_options_t {
    tavi_image_transform_mode transform; /**< applied to the crop, before it is fitted: one of the seven modes */
    tavi_filter_t filter;
    tavi_box_t crop;  /**< part of the source; need not stand on chroma samples */
    tavi_box_t place; /**< part of the destination, on whole chroma samples of it */
    tavi_fit_t fit;
    uint32_t pad_color; /**< 0xRRGGBB, what TAVI_FIT_CONTAIN leaves free of `place` */
    tavi_engine_use_t engine;
    const tavi_executor_t* executor; /**< null: the caller's thread */
    uint32_t reserved[8];            /**< zero */
} tavi_frame_options_t;

/** What was done. */
typedef struct tavi_frame_report_t {
    int32_t by_engine;      /**< 1: the engine did the pixels, 0: software */
    char engine[32];        /**< its node, empty for software */
    char why_software[128]; /**< why not the engine; empty when it worked */
    tavi_box_t crop;        /**< what was read of the source */
    tavi_box_t placement;   /**< where it stands in the destination, without padding */
    float scale_x;          /**< destination pixels per source pixel, across the destination */
    float scale_y;          /**< destination pixels per source pixel, down the destination */
    uint64_t bytes_copied;  /**< of pixels that had to be set aside before the work, 0 but in place */
    char plan[320];         /**< the steps, as words */
} tavi_frame_report_t;

/* ---------------------------------------------------------------------------------------- images and memory */

/**
 * An image as a frame: the same memory, its chroma rounded down, its colour as the setting TAVI_YUV has it.
 * @param image with a format, sides, and memory or a descriptor; its pixels stay its own.
 * @param frame filled whole.
 * @return TAVI_RET_SUCCESS; TAVI_RET_PARAM_ERR; TAVI_RET_UNSUPPORTED for a shape that has no pixels.
 */
TAVI_API int tavi_frame_from_image(const tavi_image_t* image, tavi_frame_t* frame);

/**
 * A frame as an image, where its layout is an image's own: planes one behind the other in one buffer, rows without
 * gaps, odd chroma rounded down, the colour of the setting TAVI_YUV.
 * @param frame which keeps its memory: the image is marked as preallocated. There must be tavi_image_get_size() bytes
 *              of it, which is up to half a row more than the planes of odd sides take.
 * @param image filled whole.
 * @return TAVI_RET_SUCCESS; TAVI_RET_PARAM_ERR; TAVI_RET_UNSUPPORTED where the layout is another one.
 */
TAVI_API int tavi_frame_to_image(const tavi_frame_t* frame, tavi_image_t* image);

/**
 * Lays the planes of a frame out in one buffer: sets `offset` and `pitch` of each from format, sides and
 * `chroma_rounding`; nothing else of the frame changes.
 * @param alignment of rows and planes in bytes: 1 for rows without gaps, 16, 64 or another power of two up to 4096.
 * @param bytes     receives what the buffer takes; null where it is not wanted.
 * @return TAVI_RET_SUCCESS; TAVI_RET_PARAM_ERR; TAVI_RET_UNSUPPORTED for a shape that has no pixels.
 */
TAVI_API int tavi_frame_layout(tavi_frame_t* frame, uint32_t alignment, size_t* bytes);

/**
 * Gives a frame memory of the library, laid out as tavi_frame_layout() does. Release it with tavi_frame_release().
 * @param frame    with format, sides and chroma_rounding; its planes are filled in.
 * @param mem_type TAVI_MEM_TYPE_HEAP, _DEVICE or _DEVICE_CONTIGUOUS of tavi_mem.h.
 * @return TAVI_RET_SUCCESS; TAVI_RET_PARAM_ERR; TAVI_RET_UNSUPPORTED; TAVI_RET_FAIL when there is no memory.
 */
TAVI_API int tavi_frame_create(tavi_frame_t* frame, uint32_t alignment, int32_t mem_type);

/**
 * Gives back the memory of tavi_frame_create() or tavi_frame_decode() and clears the planes.
 * @return TAVI_RET_SUCCESS, also for a frame without memory; TAVI_RET_PARAM_ERR for memory that is not the library's.
 */
TAVI_API int tavi_frame_release(tavi_frame_t* frame);

/* ----------------------------------------------------------------------------------------------- conversion */

/**
 * Converts format, colour, size, crop and orientation in one call, straight from the source to the destination: no
 * temporary of the size of a picture, no loss of chroma that converting first and scaling then would not have.
 * The engine does it where all planes of both have descriptors and it takes them as they are; it has filters of its
 * own, so that only the default one is left to it. When it fails, software does the work.
 *
 * In place (the same planes at the same pitches) is served where both sides have the same size and each plane's rows
 * the same length. Memory that overlaps otherwise is refused; pictures side by side in one buffer do not overlap.
 * @param src     read only.
 * @param dst     its planes are written: `place` of them, or all.
 * @param options null: the defaults.
 * @param report  filled when not null and the call succeeds.
 * @return TAVI_RET_SUCCESS; TAVI_RET_PARAM_ERR for a field that is out of range, memory that is missing, too small or
 *         overlaps; TAVI_RET_UNSUPPORTED for a shape, format or transform that is not served, a plane that ends
 *         2 GiB or more behind the start of its memory, or an engine that must work and cannot; TAVI_RET_FAIL
 *         when there is no memory for temporaries or a descriptor cannot be mapped.
 */
TAVI_API int tavi_frame_convert(const tavi_frame_t* src, const tavi_frame_t* dst, const tavi_frame_options_t* options,
                                tavi_frame_report_t* report);

/* -------------------------------------------------------------------------------------------------- tensors */

/** The order of dimensions: channel planes, or channels side by side in each pixel. */
typedef int32_t tavi_tensor_layout_t;
enum { TAVI_TENSOR_NCHW = 0, TAVI_TENSOR_NHWC = 1 };

/** What one element is. Two-byte and four-byte elements are in the machine's byte order. */
typedef int32_t tavi_tensor_element_t;
enum {
    TAVI_TENSOR_UINT8 = 0,
    TAVI_TENSOR_INT8 = 1,
    TAVI_TENSOR_FLOAT16 = 2, /**< IEEE 754 binary16 */
    TAVI_TENSOR_FLOAT32 = 3
};

/** Which channels a tensor has, in their order. */
typedef int32_t tavi_tensor_channels_t;
enum { TAVI_TENSOR_RGB = 0, TAVI_TENSOR_BGR = 1, TAVI_TENSOR_GRAY = 2 };

/**
 * The input of a network for one picture. An element is (value - mean) * scale, with value from 0 to 255; for integer
 * elements that is rounded to the nearest (ties to even), then zero_point is added and the sum limited to the
 * element's range. The bits are the same on every machine.
 */
typedef struct tavi_tensor_t {
    void* data; /**< aligned to its elements */
    tavi_tensor_layout_t layout;
    tavi_tensor_element_t element;
    tavi_tensor_channels_t channels;
    uint32_t width;         /**< pixels, 1 to 16384 */
    uint32_t height;        /**< rows, 1 to 16384 */
    float mean[3];          /**< of each channel, in the order of `channels` */
    float scale[3];         /**< likewise; 0 counts as 1, so that a zeroed record passes values on as they are */
    int32_t zero_point;     /**< of integer elements, in their range; 0 for float ones */
    uint32_t row_pitch;     /**< bytes from row to row; 0: rows without gaps */
    uint64_t channel_pitch; /**< bytes from channel to channel in NCHW; 0: planes without gaps */
    uint32_t reserved[8];   /**< zero */
} tavi_tensor_t;

/**
 * Everything that tavi_frame_convert() does, ending in a tensor, in bands of rows: no picture stands in between.
 * The padding of TAVI_FIT_CONTAIN is `pad_color` as a pixel, normalised like all others.
 * @return as tavi_frame_convert(). TAVI_ENGINE_MUST is TAVI_RET_UNSUPPORTED.
 */
TAVI_API int tavi_frame_to_tensor(const tavi_frame_t* src, const tavi_tensor_t* tensor,
                                  const tavi_frame_options_t* options, tavi_frame_report_t* report);

/* -------------------------------------------------------------------------------------- pictures in memory */

/** Types of encoded pictures. */
typedef int32_t tavi_picture_type_t;
enum {
    TAVI_PICTURE_JPEG = 1, /**< also single frames of MJPEG, without Huffman tables */
    TAVI_PICTURE_PNG = 2,
    TAVI_PICTURE_BMP = 3,
    TAVI_PICTURE_PNM = 4 /**< PGM for grey, PPM for colour */
};

/** What an encoded picture says of itself in its header. */
typedef struct tavi_picture_info_t {
    tavi_picture_type_t type;
    uint32_t width; /**< as stored, before the orientation is applied */
    uint32_t height;
    uint32_t channels;        /**< 1 grey, 3 colour, 4 with alpha */
    uint32_t bits;            /**< per channel, as stored */
    uint32_t orientation;     /**< as EXIF counts, 1 to 8; 1 where nothing is said */
    uint32_t subsampling_x;   /**< pixels per chroma sample across, JPEG; 1 elsewhere */
    uint32_t subsampling_y;   /**< pixels per chroma sample down, JPEG; 1 elsewhere */
    tavi_pixel_format stored; /**< the format that loses nothing of it: GRAY8, GRAY16, RGB888 or RGBA8888 */
    uint32_t reserved[8];
} tavi_picture_info_t;

/** All zero: the limit of TAVI_MAX_PIXELS, turned upright, the frame's own format. */
typedef struct tavi_decode_options_t {
    uint64_t max_pixels;        /**< refuses larger pictures before memory is taken; 0: the setting's limit */
    int32_t ignore_orientation; /**< 1: as stored, not as the camera was held */
    int32_t as_stored;          /**< 1: a frame without memory gets the format that loses nothing */
    uint32_t reserved[8];       /**< zero */
} tavi_decode_options_t;

/**
 * Reads the header of an encoded picture, and nothing behind it.
 * @param bytes the start of the picture; a few hundred bytes are often enough, a JPEG's header may be longer.
 * @param info  filled whole.
 * @return TAVI_RET_SUCCESS; TAVI_RET_PARAM_ERR; TAVI_RET_UNSUPPORTED for bytes of no known type; TAVI_RET_FAIL for a
 *         header that is damaged or cut off.
 */
TAVI_API int tavi_frame_probe(const void* bytes, size_t size, tavi_picture_info_t* info);

/**
 * Decodes a JPEG, PNG, BMP or PNM picture from memory.
 * @param frame   with planes that have memory: the picture is decoded into them, in the frame's format, colour and
 *                pitch, scaled to its sides; a JPEG is reduced by its codec on the way where that is enough.
 *                With all planes empty it gets memory of its own (tavi_frame_release()), in its format and colour, or
 *                the stored format (options), and in its sides, or the picture's where they are 0.
 * @param options null: the defaults.
 * @return TAVI_RET_SUCCESS; TAVI_RET_PARAM_ERR; TAVI_RET_UNSUPPORTED; TAVI_RET_FAIL for damaged data, or when there
 * is no memory. A damaged picture may leave part of the caller's planes written.
 */
TAVI_API int tavi_frame_decode(const void* bytes, size_t size, tavi_frame_t* frame,
                               const tavi_decode_options_t* options);

/** Takes bytes of an encoded picture as they come; 0 to go on, anything else ends the encoding with TAVI_RET_FAIL. */
typedef struct tavi_sink_t {
    int (*write)(void* user, const void* bytes, size_t size);
    void* user;
} tavi_sink_t;

/**
 * Encodes a frame. What the type cannot hold is converted first.
 * @param type    JPEG, PNG, BMP or PNM.
 * @param quality of JPEG, 1 to 100; 0: 95. Others take 0.
 * @return TAVI_RET_SUCCESS; TAVI_RET_PARAM_ERR; TAVI_RET_UNSUPPORTED; TAVI_RET_FAIL when there is no memory or the
 *         sink refuses.
 */
TAVI_API int tavi_frame_encode(const tavi_frame_t* frame, tavi_picture_type_t type, int quality,
                               const tavi_sink_t* sink);

#ifdef __cplusplus
}
#endif

#endif /* TAVI_FRAME_H */
