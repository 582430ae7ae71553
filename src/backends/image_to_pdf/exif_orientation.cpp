// The one EXIF value a page needs, its orientation, read with libexif: EXIF blocks come from
// every camera and phone maker in both byte orders and with every kind of damage, and a
// well-kept, widely fuzzed parser is worth more here than the microseconds a file it costs.

#include "page_image.h"

#include <libexif/exif-data.h>

#include <climits>
#include <memory>

namespace pw::i2p {

namespace {

struct ExifUnref {
    void operator()(ExifData *data) const { exif_data_unref(data); }
};

} // namespace

int exifOrientation(const uint8_t *data, size_t size)
{
    if (!data || size < 6 || size > UINT_MAX)
        return 1;
    std::unique_ptr<ExifData, ExifUnref> exif(exif_data_new());
    if (!exif)
        return 1;
    // libexif fills in the entries a block lacks as it loads it; an Orientation it makes up is
    // 1, upright, as no entry at all would be.
    exif_data_load_data(exif.get(), data, unsigned(size));
    const ExifEntry *entry = exif_content_get_entry(exif->ifd[EXIF_IFD_0], EXIF_TAG_ORIENTATION);
    if (!entry || entry->format != EXIF_FORMAT_SHORT || entry->components < 1 || !entry->data ||
        entry->size < 2)
        return 1;
    const int code = exif_get_short(entry->data, exif_data_get_byte_order(exif.get()));
    return code >= 1 && code <= 8 ? code : 1;
}

} // namespace pw::i2p
