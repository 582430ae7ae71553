#pragma once
// The image-to-PDF library's contract as the binding calls it. The binding decides the calls,
// their order and their constants; this seam lets a test record them without writing PDFs.

#include "backends/image_to_pdf/page_layout.h"
#include "core/settings.h"

#include <QString>
#include <QStringList>

#include <cstdint>
#include <string>

namespace pw {

class Settings;

class ImageToPdfLibrary {
public:
    virtual ~ImageToPdfLibrary() = default;
    virtual int32_t ApCreate(const std::string &pdfPath) = 0;
    // Raises a RuntimeError with the library's number and text when the file can't be read.
    virtual int32_t ApAddImage(int32_t handle, const std::string &imagePath) = 0;
    virtual int32_t ApSetFunction(int32_t handle, int32_t code, int32_t n1, int32_t n2,
                                  const std::string &text, int32_t n3) = 0;
    virtual int32_t ApGetFunction(int32_t handle, int32_t code, int32_t n1, int32_t n2,
                                  const std::string &text, int32_t n3) = 0;
    // kCloseFailed when the PDF could not be written or put in place.
    virtual int32_t ApClose(int32_t handle) = 0;
    static constexpr int32_t kCloseFailed = -3;
    // Why the last ApClose could not put the PDF in place: the last on this thread for ours(),
    // the last on its worker for responsive().
    virtual std::string closeFailure() const;
    // Releases the handle writing nothing; a library that writes nothing has nothing to drop.
    virtual int32_t ApDiscard(int32_t handle);

    // Removes the hidden part files that killed conversions left in `folder`; a file that a
    // running conversion still writes is left alone.
    virtual void removeLeftovers(const std::string &folder);
    // The language of the text layer of every PDF made from images ("" for none), for the whole
    // process. The setter returns "" or why the language cannot be used (then nothing changes).
    virtual std::string ocrLanguage();
    virtual std::string setOcrLanguage(const std::string &language);

    // Our library, in this process: called on the caller's thread. Several threads may each
    // make documents at once; a document's calls, from its create to its close, come from one.
    static ImageToPdfLibrary &ours();
    // Our library with every call made on one worker thread, while the calling thread's events
    // keep being processed, so that a window stays answering through a page that takes long to
    // encode. Any thread may call it; the calls of all of them take their turns on the worker.
    static ImageToPdfLibrary &responsive();
};

// A document of `library` from its creation until close(): one left open, as when an image of it
// cannot be read, is dropped unwritten and its handle released.
class OpenDocument {
public:
    OpenDocument(ImageToPdfLibrary &library, const std::string &pdfPath);
    ~OpenDocument();
    OpenDocument(const OpenDocument &) = delete;
    OpenDocument &operator=(const OpenDocument &) = delete;

    // Above 0 while the document is open.
    int32_t handle() const { return handle_; }
    // ApClose's status.
    int32_t close();

private:
    ImageToPdfLibrary &library_;
    int32_t handle_;
};

// The batch commands' options for the pages made from images, each taking a value:
// --page-size, --fit, --margin, --orientation, --dpi and --force-dpi shape `layout`,
// --max-pixels N goes into the library at once.
const QStringList &PageOptionNames();
// Takes `value` for the page option `option`: "" when it is right, else why not.
QString TakePageOption(const QString &option, const QString &value, i2p::PageLayout &layout);
// Makes `layout` that of every page made from images from now on: "" when it was set, else why
// not.
QString ApplyPageLayout(const i2p::PageLayout &layout);
// The same for the windows' conversions, from the settings' page size and resolution.
void ApplyPageSettings(const Settings &settings);

// The Preferences' "Make PDFs searchable (OCR)" and its language, applied to every PDF made
// from images in this process. "" when applied, else why the language cannot be used (the
// PDFs are then made without text).
QString ApplySearchablePdfSetting(const Settings &settings);

// The batch commands' `--ocr LANG`: every PDF made from images in this process gets a text
// layer read in LANG. "" when it was set, else why not (a language that is not installed
// names its package).
QString ApplyOcrOption(const QString &language);

} // namespace pw
