#include "page_rules.h"

#include "core/globals.h"
#include "core/path_helpers.h"

#include <QFile>

namespace pw {

PageKind PageKindOf(const QString &name)
{
    if (!name.contains('.'))
        return PageKind::None;
    const QString ext = GetFileExt(name).toUpper();
    if (ext == "TIF" || ext == "TIFF")
        return PageKind::Tiff;
    if (ext == "PDF")
        return PageKind::Pdf;
    return PageKind::None;
}

int32_t CountPages(PageKind kind, const QString &path)
{
    const std::string file = QFile::encodeName(path).toStdString();
    switch (kind) {
    case PageKind::Tiff:
        return TiffPageCounter ? TiffPageCounter->GetPageCount(file) : -1;
    case PageKind::Pdf:
        return PdfPageCounter ? PdfPageCounter->GetPageCount(file) : 0;
    case PageKind::None:
        break;
    }
    return 0;
}

QString PagesCellText(PageKind kind, int32_t count)
{
    const bool failed = kind == PageKind::Pdf ? count <= 0 : count < 0;
    return failed ? QStringLiteral("Error") : QString::number(count);
}

} // namespace pw
