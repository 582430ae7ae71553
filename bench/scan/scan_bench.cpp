// The folder search on a large tree: the real FolderScan filling a hidden catalogue grid,
// headless, with the Pages column hidden (no page counting) or shown (every TIFF and PDF hit
// opened and counted).
//
//   scan_bench make TREE [FILES] [FOLDERS]  writes a tree (default 50000 files in 2000 folders;
//                                           one file in five a TIFF, PDF, JPEG or PNG)
//   scan_bench scan TREE off|on             one search of TREE, patterns PATTERNS below
//   scan_bench fill ROWS                    ROWS catalogue-shaped rows into a hidden grid
//
// Run with QT_QPA_PLATFORM=offscreen where there is no display. Each mode prints one line of
// "key value" pairs: seconds, rows, rows/s and the process's resident memory from /proc.

#include "catalogue/catalogue_grid.h"
#include "catalogue/folder_scan.h"
#include "core/app_context.h"
#include "core/failure_log.h"
#include "core/grid_columns.h"
#include "core/master_layout.h"
#include "widgets/flex_grid.h"

#include <tiffio.h>

#include <QApplication>
#include <QBuffer>
#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QImage>
#include <QPainter>
#include <QTemporaryDir>

#include <cstdio>
#include <cstdlib>
#include <memory>

using namespace pw;

namespace {

// The search's typed pattern; run.sh gives find the same list.
const char *const Patterns = "*.tif;*.tiff;*.jpg;*.png;*.pdf";

long statusKb(const char *key)
{
    QFile f("/proc/self/status");
    if (!f.open(QIODevice::ReadOnly))
        return -1;
    for (const QByteArray &line : f.readAll().split('\n'))
        if (line.startsWith(key))
            return line.mid(int(qstrlen(key))).trimmed().split(' ').value(0).toLong();
    return -1;
}

// ---- the tree ----------------------------------------------------------------------------

QByteArray tiffBytes(const QString &dir, int pages)
{
    const QString path = dir + QString("/t%1.tif").arg(pages);
    TIFF *t = TIFFOpen(QFile::encodeName(path).constData(), "w");
    if (!t)
        return {};
    const int w = 400, h = 200;
    std::vector<uint8_t> row((w + 7) / 8);
    for (int p = 0; p < pages; ++p) {
        TIFFSetField(t, TIFFTAG_IMAGEWIDTH, w);
        TIFFSetField(t, TIFFTAG_IMAGELENGTH, h);
        TIFFSetField(t, TIFFTAG_BITSPERSAMPLE, 1);
        TIFFSetField(t, TIFFTAG_SAMPLESPERPIXEL, 1);
        TIFFSetField(t, TIFFTAG_PHOTOMETRIC, PHOTOMETRIC_MINISWHITE);
        TIFFSetField(t, TIFFTAG_COMPRESSION, COMPRESSION_CCITTFAX4);
        TIFFSetField(t, TIFFTAG_ROWSPERSTRIP, h);
        TIFFSetField(t, TIFFTAG_XRESOLUTION, 300.0);
        TIFFSetField(t, TIFFTAG_YRESOLUTION, 300.0);
        TIFFSetField(t, TIFFTAG_RESOLUTIONUNIT, RESUNIT_INCH);
        TIFFSetField(t, TIFFTAG_SUBFILETYPE, FILETYPE_PAGE);
        TIFFSetField(t, TIFFTAG_PAGENUMBER, p, pages);
        for (int y = 0; y < h; ++y) {
            for (size_t i = 0; i < row.size(); ++i)
                row[i] = uint8_t(((y / 8 + int(i) + p) % 5 == 0) ? 0xF0 : 0x00);
            TIFFWriteScanline(t, row.data(), uint32_t(y), 0);
        }
        TIFFWriteDirectory(t);
    }
    TIFFClose(t);
    QFile f(path);
    return f.open(QIODevice::ReadOnly) ? f.readAll() : QByteArray();
}

// A small PDF with `pages` pages sharing one content stream, with a correct cross-reference.
QByteArray pdfBytes(int pages)
{
    QByteArray out = "%PDF-1.4\n%\xE2\xE3\xCF\xD3\n";
    QList<qsizetype> offsets;
    auto object = [&](const QByteArray &body) {
        offsets << out.size();
        out += QByteArray::number(offsets.size()) + " 0 obj\n" + body + "\nendobj\n";
    };
    object("<< /Type /Catalog /Pages 2 0 R >>");
    QByteArray kids;
    for (int p = 0; p < pages; ++p)
        kids += QByteArray::number(4 + p) + " 0 R ";
    object("<< /Type /Pages /Kids [" + kids + "] /Count " + QByteArray::number(pages) + " >>");
    const QByteArray content = "0.2 w 72 72 m 500 770 l S 72 770 m 500 72 l S\n";
    object("<< /Length " + QByteArray::number(content.size()) + " >>\nstream\n" + content +
           "endstream");
    for (int p = 0; p < pages; ++p)
        object("<< /Type /Page /Parent 2 0 R /MediaBox [0 0 595 842] /Contents 3 0 R >>");
    const qsizetype xref = out.size();
    out += "xref\n0 " + QByteArray::number(offsets.size() + 1) + "\n0000000000 65535 f \n";
    for (qsizetype o : offsets)
        out += QByteArray::number(o).rightJustified(10, '0') + " 00000 n \n";
    out += "trailer\n<< /Size " + QByteArray::number(offsets.size() + 1) +
           " /Root 1 0 R >>\nstartxref\n" + QByteArray::number(xref) + "\n%%EOF\n";
    return out;
}

QByteArray imageBytes(const char *format, int seed)
{
    QImage image(160, 120, QImage::Format_RGB32);
    QPainter painter(&image);
    painter.fillRect(image.rect(), QColor(250, 248, 240));
    for (int i = 0; i < 12; ++i)
        painter.fillRect(10, 8 + i * 9, 40 + (seed * 37 + i * 53) % 100, 4, QColor(30, 30, 90));
    painter.end();
    QByteArray bytes;
    QBuffer buffer(&bytes);
    buffer.open(QIODevice::WriteOnly);
    image.save(&buffer, format);
    return bytes;
}

bool writeFile(const QString &path, const QByteArray &bytes)
{
    QFile f(path);
    return f.open(QIODevice::WriteOnly) && f.write(bytes) == bytes.size();
}

int makeTree(const QString &root, int files, int folders)
{
    QTemporaryDir scratch;
    QList<QByteArray> tiffs, pdfs, jpegs, pngs, others;
    for (int pages = 1; pages <= 4; ++pages)
        tiffs << tiffBytes(scratch.path(), pages);
    for (int pages = 1; pages <= 5; ++pages)
        pdfs << pdfBytes(pages);
    for (int i = 0; i < 3; ++i) {
        jpegs << imageBytes("JPG", i);
        pngs << imageBytes("PNG", i);
    }
    for (int i = 0; i < 7; ++i)
        others << QByteArray("Minutes of the meeting, item ").repeated(1 + i * 9);
    const char *otherSuffixes[] = {".txt", ".docx", ".xml", ".log", ".csv", ".html", ".dat"};
    for (const QByteArray &b : tiffs + pdfs + jpegs + pngs)
        if (b.isEmpty()) {
            std::fprintf(stderr, "scan_bench: could not make the sample files\n");
            return 1;
        }

    // Forty top folders, the rest spread below them; every folder holds its share of files.
    const int top = 40;
    QStringList dirs;
    for (int i = 0; i < top && dirs.size() < folders; ++i)
        dirs << QString("%1/box_%2").arg(root).arg(i, 2, 10, QChar('0'));
    for (int i = 0; dirs.size() < folders; ++i)
        dirs << QString("%1/box_%2/batch_%3")
                    .arg(root)
                    .arg(i % top, 2, 10, QChar('0'))
                    .arg(i / top, 3, 10, QChar('0'));
    for (const QString &d : dirs)
        if (!QDir().mkpath(d))
            return 1;
    int written = 0, hits = 0;
    for (int i = 0; i < files; ++i) {
        const QString &d = dirs[i % folders];
        // One file in five is a hit: of every five hits two TIFFs, a PDF, a JPEG, a PNG.
        const int slot = i / folders;
        QString name;
        QByteArray bytes;
        if (slot % 5 != 0) {
            const int o = i % 7;
            name = QString("note_%1%2").arg(i).arg(otherSuffixes[o]);
            bytes = others[o];
        } else if ((slot / 5) % 5 < 2) {
            name = QString("scan_%1.tif").arg(i);
            bytes = tiffs[i % tiffs.size()];
        } else if ((slot / 5) % 5 == 2) {
            name = QString("letter_%1.pdf").arg(i);
            bytes = pdfs[i % pdfs.size()];
        } else if ((slot / 5) % 5 == 3) {
            name = QString("photo_%1.jpg").arg(i);
            bytes = jpegs[i % jpegs.size()];
        } else {
            name = QString("figure_%1.png").arg(i);
            bytes = pngs[i % pngs.size()];
        }
        hits += name.endsWith(".tif") || name.endsWith(".pdf") || name.endsWith(".jpg") ||
                name.endsWith(".png");
        written += writeFile(d + "/" + name, bytes);
    }
    std::printf("files %d folders %d hits %d\n", written, int(dirs.size()), hits);
    return written == files ? 0 : 1;
}

// ---- the search --------------------------------------------------------------------------

// The window's side of a search, without a window: the grid's view is told to hold its
// updates during the walk, as the main window does.
class HeadlessWindow final : public ScanHost {
public:
    explicit HeadlessWindow(FlexGrid &grid) : grid_(grid) {}
    QString folder;
    QString selectedFolder() override { return folder; }
    void setSearchCaption(const QString &) override {}
    void beginBulkUpdate() override { grid_.setRedraw(false); }
    void endBulkUpdate() override { grid_.setRedraw(true); }
    void EnableSearchControls(bool) override {}
    void setBusyCursor(bool) override {}
    bool searchSubFolders() override { return true; }
    int currentColumn() override { return grid_.Col(); }
    int filterListIndex() override { return -1; }
    QString filterText() override { return Patterns; }
    AdvanceOptions advanceOptions() override { return {}; }
    QDate today() override { return QDate::currentDate(); }
    void showLoading() override {}
    void updateLoading(int) override {}
    void hideLoading() override {}
    void SetStatusText(const QString &) override {}

private:
    FlexGrid &grid_;
};

void setUpContext(AppContext &context, const QString &storage, bool pagesShown)
{
    context.FileStoragePath = storage;
    context.FileStoragePathSlash = storage + "/";
    SetErrorLogFolder(storage);
    context.AppSettings = std::make_unique<Settings>(storage, context.ui);
    context.settings().LoadDefaultSettings();
    if (!pagesShown)
        context.settings().setColumnVisibility("1,1,0,1,1,1,1,1");
    context.ColumnList = MakeColumnList();
}

int scan(const QString &tree, bool pagesShown)
{
    QTemporaryDir storage;
    QuietUi ui;
    AppContext context(ui);
    setUpContext(context, storage.path(), pagesShown);
    FlexGrid grid;
    grid.resize(1000, 700);
    CatalogueGrid catalogue(*grid.gridModel(), context);
    catalogue.InitFiles();
    HeadlessWindow window(grid);
    window.folder = tree;
    FolderScan search(catalogue, window);
    const long rssBefore = statusKb("VmRSS:");
    QElapsedTimer timer;
    timer.start();
    search.cmdSearch_Click();
    const double seconds = timer.nsecsElapsed() / 1e9;
    const int rows = grid.Rows() - 1;
    std::printf("mode scan pages %s rows %d seconds %.3f rows_per_s %.0f tiff_pages %d "
                "pdf_pages %d rss_before_kb %ld rss_kb %ld hwm_kb %ld\n",
                pagesShown ? "on" : "off", rows, seconds, rows / seconds, catalogue.TiffPageTotal,
                catalogue.PdfPageTotal, rssBefore, statusKb("VmRSS:"), statusKb("VmHWM:"));
    return rows > 0 ? 0 : 1;
}

// Rows shaped like the catalogue's (eight columns, a shared picture), added one by one with
// Redraw off into a hidden grid, as a search adds them.
int fill(int rows)
{
    FlexGrid grid;
    grid.setCols(8);
    const QStringList keys = {"Name",         "Selection", "Pages",        "Location",
                              "Size (In KB)", "Type",      "Created Date", "Modified Date"};
    for (int col = 0; col < 8; ++col) {
        grid.setTextMatrix(0, col, keys[col]);
        grid.setColKey(col, keys[col]);
    }
    grid.setColDataType(1, flexgrid::kBoolean);
    const QString icon = "image/tiff";
    const long rssBefore = statusKb("VmRSS:");
    QElapsedTimer timer;
    timer.start();
    grid.setRedraw(false);
    grid.setVisible(false);
    for (int i = 0; i < rows; ++i) {
        const int row = grid.Rows();
        grid.setRows(row + 1);
        grid.setTextMatrix(row, 0, QString("scan_%1.tif").arg(i));
        grid.setCellPicture(row, 0, icon);
        grid.setTextMatrix(row, 2, QString::number(1 + i % 40));
        grid.setTextMatrix(row, 3,
                           QString("/home/user/Scans/box_%1/batch_%2").arg(i % 40).arg(i / 500));
        grid.setTextMatrix(row, 4, QString("%L1 KB").arg(1 + (i * 31) % 90000));
        grid.setTextMatrix(row, 5, "tiff image");
        grid.setTextMatrix(row, 6,
                           QString("%1/%2/2025 %3:15 PM")
                               .arg(1 + i % 28, 2, 10, QChar('0'))
                               .arg(1 + i % 12, 2, 10, QChar('0'))
                               .arg(1 + i % 12, 2, 10, QChar('0')));
        grid.setTextMatrix(row, 7, "03/02/2026 10:16 AM");
    }
    const double seconds = timer.nsecsElapsed() / 1e9;
    const long rss = statusKb("VmRSS:");
    std::printf("mode fill rows %d seconds %.3f rows_per_s %.0f rss_before_kb %ld rss_kb %ld "
                "grid_kb %ld bytes_per_row %.0f hwm_kb %ld\n",
                rows, seconds, rows / seconds, rssBefore, rss, rss - rssBefore,
                (rss - rssBefore) * 1024.0 / rows, statusKb("VmHWM:"));
    return 0;
}

} // namespace

int main(int argc, char **argv)
{
    QApplication app(argc, argv);
    const QStringList args = app.arguments().mid(1);
    const QString mode = args.value(0);
    if (mode == "make" && args.size() >= 2)
        return makeTree(QDir(args[1]).absolutePath(), args.value(2, "50000").toInt(),
                        args.value(3, "2000").toInt());
    if (mode == "scan" && args.size() == 3 && (args[2] == "on" || args[2] == "off"))
        return scan(QDir(args[1]).absolutePath(), args[2] == "on");
    if (mode == "fill" && args.size() == 2)
        return fill(args[1].toInt());
    std::fprintf(stderr, "usage: scan_bench make TREE [FILES] [FOLDERS] | scan TREE off|on | "
                         "fill ROWS\n");
    return 2;
}
