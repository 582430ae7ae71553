#include "engine/image_to_pdf_library.h"

#include "pdf_probe.h"
#include "sample_images.h"
#include "sandbox.h"

#include <gtest/gtest.h>

#include <QDir>
#include <QImage>

#include <functional>
#include <thread>
#include <vector>

using namespace pw;

namespace {

// One document of `images`, its pages as wide in points as the images in pixels; the status of
// each call, from the create to the close, and the close's failure text when it had one.
struct Made {
    std::vector<int32_t> statuses;
    std::string closeFailure;
};

Made makeDocument(ImageToPdfLibrary &library, const QString &pdf, const QStringList &images,
                  const std::function<void()> &beforeClose = {})
{
    Made made;
    const int32_t handle = library.ApCreate(pdf.toStdString());
    made.statuses.push_back(handle > 0 ? 0 : handle);
    made.statuses.push_back(library.ApSetFunction(handle, 123, 3, 0, "Zip", 0));
    for (const QString &image : images)
        made.statuses.push_back(library.ApAddImage(handle, image.toStdString()));
    if (beforeClose)
        beforeClose();
    made.statuses.push_back(library.ApClose(handle));
    if (made.statuses.back() != 0)
        made.closeFailure = library.closeFailure();
    return made;
}

} // namespace

// The windows' library and the batch's, each used from several threads at once (the window's
// own thread among them, turning its events while it waits): every document gets exactly its
// own pages, and a close that cannot place its file says why to the thread that asked.
TEST(ImageToPdfLibraries, DocumentsOfManyThreadsKeepToThemselves)
{
    SandboxDir box;
    QStringList images;
    for (int width : {20, 30, 40}) {
        QImage image = colourPattern(width, 10);
        image.setDotsPerMeterX(2835); // 72 dpi
        image.setDotsPerMeterY(2835);
        images << box.filePath(QString("i%1.png").arg(width));
        ASSERT_TRUE(image.save(images.back()));
    }
    const QList<int> widths = {20, 30, 40};
    const std::vector<int32_t> allFine(images.size() + 3, 0);

    for (ImageToPdfLibrary *library :
         {&ImageToPdfLibrary::ours(), &ImageToPdfLibrary::responsive()}) {
        SCOPED_TRACE(library == &ImageToPdfLibrary::ours() ? "ours" : "responsive");
        std::vector<Made> made(4);
        std::vector<std::jthread> threads;
        for (size_t i = 1; i < made.size(); ++i)
            threads.emplace_back([&, i] {
                made[i] = makeDocument(*library, box.filePath(QString("t%1.pdf").arg(i)), images);
            });
        made[0] = makeDocument(*library, box.filePath("t0.pdf"), images);
        threads.clear();
        for (size_t i = 0; i < made.size(); ++i) {
            EXPECT_EQ(made[i].statuses, allFine) << i;
            EXPECT_EQ(pageWidths(box.filePath(QString("t%1.pdf").arg(i))), widths) << i;
        }

        const QString gone = box.mkdir("gone");
        const Made failed = makeDocument(*library, gone + "/x.pdf", images,
                                         [&] { ASSERT_TRUE(QDir(gone).removeRecursively()); });
        EXPECT_EQ(failed.statuses.back(), -3);
        EXPECT_FALSE(failed.closeFailure.empty());
    }
}
