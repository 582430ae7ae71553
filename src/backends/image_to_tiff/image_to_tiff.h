#pragma once

/* Writes any image Qt reads as a one-page TIFF: a module of its own (pw_image_to_tiff.so), so
   that Qt's image plugins load only for a run that asks for it. Only C types cross. */

#include "module_abi.h"

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/* `source` to `target` (UTF-8 paths). `compression` is the TIFF compression number (1 none,
   4 G4, 5 LZW, 7 JPEG, 8 Deflate); 0 chooses by the image: G4 for black and white, LZW with a
   predictor otherwise. Black and white stays 1 bit, grey 8 bits, anything else becomes 24-bit
   RGB. Returns PW_MODULE_OK, or PW_MODULE_FAILED with `error` filled (53 missing, 321 not an
   image, 380 compression unknown or unfit for the image, 75 target not writable). */
PW_MODULE_EXPORT int32_t pw_image_to_tiff(const char *source, const char *target,
                                          int32_t compression, pw_module_error *error);

#ifdef __cplusplus
}

namespace pw::image_tiff {

inline constexpr char kModule[] = "pw_image_to_tiff.so";

} // namespace pw::image_tiff
#endif
