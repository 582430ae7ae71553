// The two conversion dialogs driven as a user drives them, on the program's own code: the files
// go into a catalogue, are checked, handed over by the main window's commands and converted by
// a click on the dialog's button.
//
//   dialog_bench convert OUT_DIR FILE...   Image to PDF, one PDF per file, into OUT_DIR
//   dialog_bench merge OUT.pdf FILE...     Merge and Convert to PDF, in the order given
//   dialog_bench shots SHOT_DIR OUT_DIR FILE...
//                                          under a display: screenshots of both dialogs
//                                          mid-run and after, and of the error report (a
//                                          file named *damaged* is left out of the merge)
//
// convert and merge print one line of "key value" pairs: the seconds from the click to the end
// of the run, wall and CPU (all threads), the longest time the event loop went without a turn
// (a 0 ms timer measures it), the files, and the files the bar reached. Run them with
// QT_QPA_PLATFORM=offscreen; message boxes are answered without showing. shots uses the desktop's
// real boxes and writes PNGs with ImageMagick's `import`.

#include "catalogue/catalogue_grid.h"
#include "catalogue/selection_commands.h"
#include "conversion_dialogs/frm_con_image_to_pdf.h"
#include "conversion_dialogs/frm_error_report_dialog.h"
#include "conversion_dialogs/frm_set_order_m_con_tiff.h"
#include "conversion_dialogs/logic/hand_over.h"
#include "core/app_context.h"
#include "core/master_layout.h"
#include "engine/ap_img_to_pdf.h"
#include "grid/flex_grid_model.h"
#include "main_window/qt_ui_services.h"
#include "widgets/flex_grid.h"

#include <QApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QFileInfo>
#include <QLineEdit>
#include <QMessageBox>
#include <QProcess>
#include <QProgressBar>
#include <QPushButton>
#include <QThread>
#include <QTimer>

#include <sys/resource.h>

#include <cstdio>
#include <memory>

using namespace pw;

namespace {

// The context start-up makes, with its storage in the per-user data folder (XDG_DATA_HOME).
struct Program {
    explicit Program(UiServices &ui) : context(ui)
    {
        EnsureFileStoragePath(context);
        context.AppSettings = std::make_unique<Settings>(context.FileStoragePath, ui);
        context.settings().LoadDefaultSettings();
        context.ColumnList = MakeColumnList();
        context.FilterPatterns = FillFilterPatterns();
    }
    // The catalogue with every file checked, as the main window holds it before a command.
    CatalogueGrid &catalogue(const QStringList &files)
    {
        grid = std::make_unique<CatalogueGrid>(model, context);
        grid->InitFiles();
        for (const QString &file : files) {
            const QFileInfo info(file);
            grid->AddFileToGrid(info.absolutePath(), info);
        }
        CheckAllRows(*grid);
        return *grid;
    }

    AppContext context;
    FlexGridModel model;
    std::unique_ptr<CatalogueGrid> grid;
};

// The longest stretch without a turn of the event loop while it runs. It ticks every 5 ms, not
// at every idle turn: a zero timer would keep the loop busy while the conversion works on its
// thread and bill the measurement's own spinning to the dialog.
class LoopWatch {
public:
    LoopWatch()
    {
        ticker_.setTimerType(Qt::PreciseTimer);
        QObject::connect(&ticker_, &QTimer::timeout,
                         [this] { longest_ = std::max(longest_, sinceTick_.restart()); });
        ticker_.start(5);
        sinceTick_.start();
    }
    qint64 longest() const { return longest_; }

private:
    QTimer ticker_;
    QElapsedTimer sinceTick_;
    qint64 longest_ = 0;
};

// CPU seconds of the process so far, every thread's.
double cpuSeconds()
{
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    const auto seconds = [](const timeval &t) {
        return double(t.tv_sec) + double(t.tv_usec) / 1e6;
    };
    return seconds(usage.ru_utime) + seconds(usage.ru_stime);
}

// Runs `click`, timed, and prints the figures.
void timed(const std::function<void()> &click, int files, const QProgressBar *bar)
{
    int top = 0;
    QObject::connect(bar, &QProgressBar::valueChanged,
                     [&](int value) { top = std::max(top, value); });
    QElapsedTimer clock;
    LoopWatch watch;
    const double cpuBefore = cpuSeconds();
    clock.start();
    click();
    std::printf("seconds %.3f cpu_seconds %.3f longest_gap_ms %lld files %d bar_reached %d\n",
                double(clock.nsecsElapsed()) / 1e9, cpuSeconds() - cpuBefore,
                static_cast<long long>(watch.longest()), files, top);
}

int convert(Program &program, const QString &outDir, const QStringList &files)
{
    const auto rows = ImageToPdfHandOver(program.catalogue(files), 0, {});
    if (!rows)
        return 1;
    frmConImageToPdf dialog(program.context);
    dialog.colSelectedData = *rows;
    dialog.show();
    QDir().mkpath(outDir);
    dialog.txtOutputFolder->setText(outDir);
    timed([&] { dialog.cmdConvert->click(); }, int(rows->size()), dialog.ProgressBar1);
    return 0;
}

int merge(Program &program, const QString &outPdf, const QStringList &files)
{
    const auto rows = MergeHandOver(program.catalogue(files));
    if (!rows)
        return 1;
    frmSetOrder_MConTiff dialog(program.context);
    dialog.colSelectedData = *rows;
    dialog.show();
    dialog.txtmanualfilename->setText(QFileInfo(outPdf).fileName());
    dialog.txtOutputFolder->setText(QFileInfo(outPdf).absolutePath());
    timed([&] { dialog.cmdOK->click(); }, int(rows->size()), dialog.ProgressBar1);
    return 0;
}

// Photographs the screen once what is pending has been painted.
void shoot(const QString &file)
{
    for (int i = 0; i < 5; ++i) {
        QCoreApplication::processEvents();
        QThread::msleep(60);
    }
    QProcess::execute("import", {"-window", "root", file});
}

// Photographs each box or report that opens, then closes it.
class BoxShooter final : public QObject {
public:
    BoxShooter(QStringList names, QString dir) : names_(std::move(names)), dir_(std::move(dir))
    {
        qApp->installEventFilter(this);
    }

protected:
    bool eventFilter(QObject *watched, QEvent *event) override
    {
        auto *box = qobject_cast<QDialog *>(watched);
        const bool report = qobject_cast<frmErrorReportDialog *>(watched) != nullptr;
        if (event->type() != QEvent::Show || !box || names_.isEmpty() ||
            !(report || qobject_cast<QMessageBox *>(watched)))
            return false;
        QTimer::singleShot(300, box, [this, box] {
            shoot(dir_ + "/" + names_.takeFirst());
            box->accept();
        });
        return false;
    }

private:
    QStringList names_;
    QString dir_;
};

// Photographs a dialog's run when its bar is half way.
void shootHalfWay(QProgressBar *bar, const QString &file)
{
    QObject::connect(bar, &QProgressBar::valueChanged, bar, [bar, file](int value) {
        if (value == bar->maximum() / 2)
            shoot(file);
    });
}

int shots(Program &program, const QString &shotDir, const QString &outDir, const QStringList &files)
{
    BoxShooter boxes({"error_report.png", "merge_done.png"}, shotDir);
    {
        const auto rows = ImageToPdfHandOver(program.catalogue(files), 0, {});
        frmConImageToPdf dialog(program.context);
        dialog.colSelectedData = *rows;
        dialog.show();
        dialog.txtOutputFolder->setText(outDir);
        shootHalfWay(dialog.ProgressBar1, shotDir + "/image_to_pdf_running.png");
        dialog.cmdConvert->click();
        shoot(shotDir + "/image_to_pdf_after.png");
    }
    QStringList good = files;
    good.removeIf([](const QString &file) { return file.contains("damaged"); });
    const auto rows = MergeHandOver(program.catalogue(good));
    frmSetOrder_MConTiff dialog(program.context);
    dialog.colSelectedData = *rows;
    dialog.show();
    // A block moved down a row, highlighted as the user leaves it.
    dialog.vsFilesSetOrder->Select(2, 0, 3, 0);
    dialog.cmdDown_Click();
    dialog.txtmanualfilename->setText("Scans of the week");
    dialog.txtOutputFolder->setText(outDir);
    shootHalfWay(dialog.ProgressBar1, shotDir + "/merge_running.png");
    dialog.cmdOK->click();
    return 0;
}

} // namespace

int main(int argc, char **argv)
{
    QApplication app(argc, argv);
    const QStringList args = app.arguments().mid(1);
    const QString mode = args.value(0);
    if (args.size() < 3 || (mode != "convert" && mode != "merge" && mode != "shots") ||
        (mode == "shots" && args.size() < 4)) {
        std::fputs("usage: dialog_bench convert OUT_DIR FILE... | merge OUT.pdf FILE... | "
                   "shots SHOT_DIR OUT_DIR FILE...\n",
                   stderr);
        return 2;
    }
    QuietUi quiet;
    QtUiServices desktop;
    Program program(mode == "shots" ? static_cast<UiServices &>(desktop) : quiet);
    if (mode == "convert")
        return convert(program, args[1], args.mid(2));
    if (mode == "merge")
        return merge(program, args[1], args.mid(2));
    QDir().mkpath(args[1]);
    QDir().mkpath(args[2]);
    return shots(program, args[1], args[2], args.mid(3));
}
