#include "sample_files.h"

#include <gtest/gtest.h>
#include <qpdf/QPDF.hh>
#include <qpdf/QPDFObjectHandle.hh>
#include <qpdf/QPDFPageDocumentHelper.hh>
#include <qpdf/QPDFWriter.hh>
#include <tiffio.h>

#include <QFile>

#include <algorithm>
#include <memory>

namespace {

struct TiffCloser {
    void operator()(TIFF *tif) const { TIFFClose(tif); }
};

} // namespace

void WriteTiff(const QString &path, int pages, const std::vector<int> &reduced)
{
    std::unique_ptr<TIFF, TiffCloser> tif(TIFFOpen(QFile::encodeName(path).constData(), "w"));
    ASSERT_TRUE(tif);
    const uint32_t width = 16, height = 8;
    std::vector<uint8_t> line(width, 0x80);
    for (int page = 0; page < pages; ++page) {
        TIFFSetField(tif.get(), TIFFTAG_IMAGEWIDTH, width);
        TIFFSetField(tif.get(), TIFFTAG_IMAGELENGTH, height);
        TIFFSetField(tif.get(), TIFFTAG_BITSPERSAMPLE, 8);
        TIFFSetField(tif.get(), TIFFTAG_SAMPLESPERPIXEL, 1);
        TIFFSetField(tif.get(), TIFFTAG_PHOTOMETRIC, PHOTOMETRIC_MINISBLACK);
        TIFFSetField(tif.get(), TIFFTAG_PLANARCONFIG, PLANARCONFIG_CONTIG);
        TIFFSetField(tif.get(), TIFFTAG_ROWSPERSTRIP, height);
        const bool isReduced = std::find(reduced.begin(), reduced.end(), page) != reduced.end();
        TIFFSetField(tif.get(), TIFFTAG_SUBFILETYPE, isReduced ? FILETYPE_REDUCEDIMAGE : 0);
        for (uint32_t row = 0; row < height; ++row)
            ASSERT_EQ(TIFFWriteScanline(tif.get(), line.data(), row, 0), 1);
        ASSERT_TRUE(TIFFWriteDirectory(tif.get()));
    }
}

void WriteQpdfPdf(const QString &path, int pages)
{
    QPDF pdf;
    pdf.emptyPDF();
    QPDFPageDocumentHelper helper(pdf);
    for (int i = 0; i < pages; ++i) {
        QPDFObjectHandle page = pdf.makeIndirectObject(
            QPDFObjectHandle::parse("<< /Type /Page /MediaBox [0 0 612 792] /Resources << >> >>"));
        helper.addPage(page, false);
    }
    QPDFWriter writer(pdf, QFile::encodeName(path).constData());
    writer.setStaticID(true);
    writer.write();
}
