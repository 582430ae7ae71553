#include "globals.h"

namespace pw {

QString CommandLineFolder;
QStringList CommandLineFiles;
QString FileStoragePath;
QString FileStoragePathSlash;
std::unique_ptr<Settings> AppSettings;
std::unique_ptr<GridColumns> ColumnList;
QStringList ColumnWidths;
QStringList ColumnVisibilityList;
QStringList ColumnOrderList;
std::array<QString, 12> FilterPatterns;
std::unique_ptr<::PdfPageCounter> PdfPageCounter;
std::unique_ptr<::TiffPageCounter> TiffPageCounter;

void FillFilterPatterns()
{
    FilterPatterns = {
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
