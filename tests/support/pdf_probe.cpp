#include "pdf_probe.h"

#include <poppler-document.h>
#include <poppler-image.h>
#include <poppler-page-renderer.h>
#include <poppler-page.h>

#include <qpdf/QPDF.hh>
#include <qpdf/QPDFPageDocumentHelper.hh>
#include <qpdf/QPDFPageObjectHelper.hh>
#include <qpdf/QPDFWriter.hh>

#include <QFile>
#include <QProcess>

#include <algorithm>
#include <cstdio>
#include <memory>

std::vector<ProbedPage> probePdf(const QString &pdf)
{
    std::vector<ProbedPage> pages;
    try {
        QPDF q;
        q.setSuppressWarnings(true);
        q.processFile(pdf.toStdString().c_str());
        for (auto &page : QPDFPageDocumentHelper(q).getAllPages()) {
            ProbedPage p;
            auto box = page.getMediaBox();
            p.width = box.getArrayItem(2).getNumericValue() - box.getArrayItem(0).getNumericValue();
            p.height =
                box.getArrayItem(3).getNumericValue() - box.getArrayItem(1).getNumericValue();
            if (auto rotate = page.getAttribute("/Rotate", false); rotate.isInteger())
                p.rotate = int(rotate.getIntValue());
            for (auto &[name, image] : page.getImages()) {
                (void)name;
                ProbedImage im;
                auto dict = image.getDict();
                auto filter = dict.getKey("/Filter");
                if (filter.isName())
                    im.filter = filter.getName();
                else if (filter.isArray() && filter.getArrayNItems() > 0)
                    im.filter = filter.getArrayItem(0).getName();
                im.decodeParms = dict.getKey("/DecodeParms").unparse();
                im.colourSpace = dict.getKey("/ColorSpace").unparseResolved();
                if (dict.getKey("/BitsPerComponent").isInteger())
                    im.bpc = int(dict.getKey("/BitsPerComponent").getIntValue());
                im.hasSMask = dict.getKey("/SMask").isStream();
                auto raw = image.getRawStreamData();
                im.raw.assign(reinterpret_cast<const char *>(raw->getBuffer()), raw->getSize());
                p.images.push_back(std::move(im));
            }
            pages.push_back(std::move(p));
        }
    } catch (const std::exception &) {
        pages.clear();
    }
    return pages;
}

std::string firstImageFilter(const QString &pdf)
{
    const std::vector<ProbedPage> pages = probePdf(pdf);
    return pages.empty() || pages[0].images.empty() ? "" : pages[0].images[0].filter;
}

bool qpdfChecks(const QString &pdf)
{
    QProcess p;
    p.start("qpdf", {"--check", pdf});
    p.waitForFinished(60000);
    return p.exitStatus() == QProcess::NormalExit && p.exitCode() == 0;
}

QImage renderPage(const QString &pdf, int index, double dpi)
{
    std::unique_ptr<poppler::document> doc(poppler::document::load_from_file(pdf.toStdString()));
    if (!doc || index >= doc->pages())
        return {};
    std::unique_ptr<poppler::page> page(doc->create_page(index));
    poppler::page_renderer r;
    r.set_render_hints(0);
    r.set_image_format(poppler::image::format_argb32);
    poppler::image img = r.render_page(page.get(), dpi, dpi);
    QImage q(reinterpret_cast<const uchar *>(img.const_data()), img.width(), img.height(),
             img.bytes_per_row(), QImage::Format_ARGB32);
    return q.convertToFormat(QImage::Format_RGB32);
}

QImage paintedPixels(const QString &pdf, int index, int width, int height)
{
    const auto pages = probePdf(pdf);
    if (index >= int(pages.size()) || pages[size_t(index)].width <= 0)
        return {};
    const ProbedPage &page = pages[size_t(index)];
    constexpr int kScale = 4;
    const double dpi = 72.0 * kScale * width / (page.rotate % 180 ? page.height : page.width);
    const QImage big = renderPage(pdf, index, dpi);
    if (big.width() < width * kScale || big.height() < height * kScale)
        return {};
    QImage out(width, height, QImage::Format_RGB32);
    for (int y = 0; y < height; ++y)
        for (int x = 0; x < width; ++x)
            out.setPixel(x, y, big.pixel(x * kScale + kScale / 2, y * kScale + kScale / 2));
    return out;
}

int maxChannelDifference(const QImage &a, const QImage &b, double *mean)
{
    if (a.size() != b.size() || a.isNull())
        return -1;
    const QImage x = a.convertToFormat(QImage::Format_RGB32);
    const QImage y = b.convertToFormat(QImage::Format_RGB32);
    int worst = 0;
    double sum = 0;
    for (int row = 0; row < x.height(); ++row)
        for (int col = 0; col < x.width(); ++col) {
            const QRgb p = x.pixel(col, row), q = y.pixel(col, row);
            const int d[] = {std::abs(qRed(p) - qRed(q)), std::abs(qGreen(p) - qGreen(q)),
                             std::abs(qBlue(p) - qBlue(q))};
            worst = std::max({worst, d[0], d[1], d[2]});
            sum += d[0] + d[1] + d[2];
        }
    if (mean)
        *mean = sum / (3.0 * x.width() * x.height());
    return worst;
}

void WriteQpdfPdf(const QString &path, int pages)
{
    QPDF pdf;
    pdf.emptyPDF();
    QPDFPageDocumentHelper helper(pdf);
    for (int i = 0; i < pages; ++i)
        helper.addPage(pdf.makeIndirectObject(QPDFObjectHandle::parse(
                           "<< /Type /Page /MediaBox [0 0 612 792] /Resources << >> >>")),
                       false);
    QPDFWriter writer(pdf, QFile::encodeName(path).constData());
    writer.setStaticID(true);
    writer.write();
}

QByteArray rawPdf(const std::vector<std::string> &bodies)
{
    std::string out = "%PDF-1.4\n";
    std::vector<size_t> offsets;
    for (size_t i = 0; i < bodies.size(); ++i) {
        offsets.push_back(out.size());
        out += std::to_string(i + 1) + " 0 obj\n" + bodies[i] + "\nendobj\n";
    }
    const size_t xref = out.size();
    out += "xref\n0 " + std::to_string(bodies.size() + 1) + "\n0000000000 65535 f \n";
    for (size_t offset : offsets) {
        char entry[21];
        std::snprintf(entry, sizeof entry, "%010zu 00000 n \n", offset);
        out += entry;
    }
    out += "trailer\n<< /Size " + std::to_string(bodies.size() + 1) + " /Root 1 0 R >>\n";
    out += "startxref\n" + std::to_string(xref) + "\n%%EOF\n";
    return QByteArray::fromStdString(out);
}

std::string pdfStream(const std::string &dict, const std::string &data)
{
    return "<< " + dict + " /Length " + std::to_string(data.size()) + " >>\nstream\n" + data +
           "\nendstream";
}

QList<int> pageWidths(const QString &pdf)
{
    QList<int> widths;
    for (const ProbedPage &page : probePdf(pdf))
        widths << qRound(page.width);
    return widths;
}
