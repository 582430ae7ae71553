#include "app_context.h"

namespace pw {

FilterPatternTable FillFilterPatterns()
{
    return {
        "*.tif,*.tiff,*.jpg,*.jp2,*.gif,*.png,*.pcd,*.psd,*.tga,*.bmp,*.dcx,*.emf,*.wmf,*.pcx,"
        "*.ppm,*.ico,*.pnm",
        "*.tif,*.tiff",
        "*.jpg,*.jp2",
        "*.gif",
        "*.png,*.pcd,*.psd,*.tga",
        "*.bmp",
        "*.dcx",
        "*.emf,*.wmf",
        "*.pcx,*.ppm",
        "*.ico",
        "*.pnm",
        QString(),
    };
}

} // namespace pw
