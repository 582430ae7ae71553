#include "pdf_probe.h"
#include "sample_images.h"
#include "sandbox.h"

#include <gtest/gtest.h>

#include <QFileInfo>
#include <QProcess>

namespace {

// Runs `program` in `folder` to its end; its standard error in `err`.
int run(const QString &program, const QStringList &args, const QString &folder,
        const QProcessEnvironment &env, QString &err)
{
    QProcess process;
    process.setWorkingDirectory(folder);
    process.setProcessEnvironment(env);
    process.start(program, args);
    if (!process.waitForFinished(60000))
        return -1;
    err = QString::fromLocal8Bit(process.readAllStandardError());
    return process.exitStatus() == QProcess::NormalExit ? process.exitCode() : -1;
}

TEST(Install, InstalledBatchToolMergesAPdfWithTheInstalledModule)
{
    SandboxDir box;
    const QString prefix = box.mkdir("prefix");
    const auto env = QProcessEnvironment::systemEnvironment();
    QString err;
    ASSERT_EQ(run(PW_CMAKE_COMMAND, {"--install", PW_BUILD_DIR, "--prefix", prefix}, box.path(),
                  env, err),
              0)
        << err.toStdString();
    // What the desktop, man, bash and the Help menu look for, where they look.
    for (const QString file :
         {"bin/pagewright", "share/applications/pagewright.desktop",
          "share/icons/hicolor/scalable/apps/pagewright.svg",
          "share/icons/hicolor/48x48/apps/pagewright.png",
          "share/metainfo/org.example.pagewright.metainfo.xml", "share/man/man1/pagewright.1.gz",
          "share/man/man1/pagewright-batch.1.gz",
          "share/bash-completion/completions/pagewright-batch", "share/doc/pagewright/help.html",
          "share/doc/pagewright/copyright", PW_MODULE_INSTALL_DIR "/pw_magick_reader.so"})
        EXPECT_TRUE(QFileInfo::exists(prefix + "/" + file)) << file.toStdString();

    const QString work = box.mkdir("work");
    WriteQpdfPdf(work + "/a.pdf", 2);
    writeTiff(work + "/b.tif", {});
    auto batchEnv = env;
    batchEnv.remove("PAGEWRIGHT_MODULE_DIR"); // the tests' own pointer at the build tree
    batchEnv.insert("XDG_DATA_HOME", box.mkdir("data"));
    // The dynamic loader names every file it opens, the module included.
    batchEnv.insert("LD_DEBUG", "files");
    ASSERT_EQ(run(prefix + "/bin/pagewright-batch", {"merge", "-o", "m.pdf", "a.pdf", "b.tif"},
                  work, batchEnv, err),
              0)
        << err.toStdString();
    EXPECT_EQ(probePdf(work + "/m.pdf").size(), 3u);
    const QString module = "/" PW_MODULE_INSTALL_DIR "/pw_pdf_reading.so";
    bool fromPrefix = false;
    for (const QString &line : err.split('\n'))
        fromPrefix = fromPrefix || (line.contains("file=" + prefix) && line.contains(module));
    EXPECT_TRUE(fromPrefix) << "the PDF reader was not loaded from the installed folder";
}

} // namespace
