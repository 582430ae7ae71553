#pragma once

/* The player of Windows metafiles (EMF and WMF), a module of its own (pw_metafile_player.so) on
   Qt's painter and FreeType: only a run that meets a metafile pays for loading them. It plays a
   drawing as vector graphics onto a one-page PDF of the picture's size, or as an image at up to
   300 dpi offered through the same C types as the GraphicsMagick module (magick_reader.h). */

#include "magick_reader.h"

#ifdef __cplusplus
#include <type_traits>
#endif

#ifdef __cplusplus
extern "C" {
#endif

/* Plays the metafile held in `data` ("EMF" or "WMF") and offers its one page to `on_page`. Returns
   PW_MODULE_OK, or PW_MODULE_FAILED with `error` set when the records are damaged or cut
   short (or when `on_page` stopped it). */
PW_MODULE_EXPORT int32_t pw_play_metafile(const uint8_t *data, size_t size, const char *format,
                                          int32_t first_only, pw_magick_page_fn on_page,
                                          void *context, pw_module_error *error);

/* Receives bytes the module made; they are the module's until the call returns. */
typedef void (*pw_metafile_bytes_fn)(void *context, const uint8_t *bytes, size_t size);

/* Plays the metafile held in `data` as paths, fills and images onto a PDF of one page the size
   of the picture, and hands the PDF to `take`. Fails as pw_play_metafile does, and then hands
   nothing over. */
PW_MODULE_EXPORT int32_t pw_metafile_to_pdf(const uint8_t *data, size_t size, const char *format,
                                            pw_metafile_bytes_fn take, void *context,
                                            pw_module_error *error);

#ifdef __cplusplus
}

namespace pw::metafile {

inline constexpr char kModule[] = "pw_metafile_player.so";
inline constexpr char kPlay[] = "pw_play_metafile";
inline constexpr char kToPdf[] = "pw_metafile_to_pdf";
using ToPdf = decltype(&pw_metafile_to_pdf);
static_assert(std::is_same_v<decltype(&pw_play_metafile), magick::Read>);

} // namespace pw::metafile
#endif
