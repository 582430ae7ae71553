#pragma once

/* The player of Windows metafiles (EMF and WMF), a module of its own (pw_metafile_player.so) on
   Qt's painter and FreeType: only a run that meets a metafile pays for loading them. It offers the
   drawing as one page, played at up to 300 dpi, through the same C types as the GraphicsMagick
   module (magick_reader.h). */

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

#ifdef __cplusplus
}

namespace pw::metafile {

inline constexpr char kModule[] = "pw_metafile_player.so";
inline constexpr char kPlay[] = "pw_play_metafile";
static_assert(std::is_same_v<decltype(&pw_play_metafile), magick::Read>);

} // namespace pw::metafile
#endif
