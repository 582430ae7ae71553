#pragma once

// Looks into written PDFs the way a reader would: structure checked by qpdf, image streams
// as stored, pages as poppler paints them.

#include <QImage>
#include <QList>
#include <QString>

#include <string>
#include <vector>

struct ProbedImage {
    std::string filter;      // first filter name, "" when none
    std::string decodeParms; // unparsed, for spot checks
    std::string colourSpace; // unparsed
    int bpc = 0;
    bool hasSMask = false;
    std::string raw; // stream data as stored
};

struct ProbedPage {
    double width = 0, height = 0; // points, of the media box
    int rotate = 0;               // the page's turn, clockwise
    std::vector<ProbedImage> images;
};

// Pages of `pdf` with their images; empty when qpdf cannot open the file.
std::vector<ProbedPage> probePdf(const QString &pdf);
// The width of each page of `pdf` in whole points, in page order.
QList<int> pageWidths(const QString &pdf);
// The filter of the first image on the first page; "" when there is none.
std::string firstImageFilter(const QString &pdf);
// `qpdf --check` passes without errors or warnings.
bool qpdfChecks(const QString &pdf);
// Page `index` painted by poppler at `dpi`, no anti-aliasing, as RGB32.
QImage renderPage(const QString &pdf, int index, double dpi = 72);
// The image pixels as painted on page `index` (the page, as shown, covered by one width x height
// image):
// painted four times larger and read at each pixel's centre, so edge rounding cannot blur them.
QImage paintedPixels(const QString &pdf, int index, int width, int height);
// Largest difference of any channel between two images of the same size, and in `mean` the
// mean difference per channel, for lossy encodings; -1 when sizes differ.
int maxChannelDifference(const QImage &a, const QImage &b, double *mean = nullptr);
// A PDF written by qpdf: `pages` empty Letter pages under one /Pages node.
void WriteQpdfPdf(const QString &path, int pages);
// A hand-made PDF with a correct cross-reference table around the given object bodies (object
// i+1 is bodies[i], the catalog first): how files that no writer would produce are made.
QByteArray rawPdf(const std::vector<std::string> &bodies);
// The body of a stream object: `data` under a dictionary of `dict` and its /Length.
std::string pdfStream(const std::string &dict, const std::string &data);
