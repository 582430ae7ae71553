#pragma once
// The program's settings: 49 named values, and after them the pages' size and resolution and
// the searchable-PDF choice, kept in memory and in one file. Every assignment rewrites the whole
// file at once (write-through); nothing is saved at exit.

#include <QString>

#include <cstdint>

namespace pw {

// X(type, key, default), in the order the file is read and written. Within each group of
// three the path comes last, and SortbyNumeric follows ColumnReOrder; the file is keyed by
// name, so the order only decides how far a damaged file's partial read gets.
#define PW_SETTINGS_KEYS(X)                                                                        \
    X(Text, ColumnVisibility, "1,1,1,1,1,1,1,1")                                                   \
    X(Text, ExportLocation, "")                                                                    \
    X(Byte, LanguageFile, 0)                                                                       \
    X(Text, StartupFolder, HomeFolder())                                                           \
    X(Byte, WindowStateFlag, 1)                                                                    \
    X(Byte, WindowStateValue, 2)                                                                   \
    X(Long, LastWindowState, 0)                                                                    \
    X(Long, LastWindowLeft, 0)                                                                     \
    X(Long, LastWindowTop, 0)                                                                      \
    X(Long, LastWindowHeight, 0)                                                                   \
    X(Long, LastWindowWidth, 0)                                                                    \
    X(Integer, LastGridColWidthFlag, 1)                                                            \
    X(Text, LastGridColWidth, "1800,250,700,1800,1000,1400,2000,2000")                             \
    X(Text, ColumnReOrder,                                                                         \
      "Name,Selection,Pages,Location,Size (In KB),Type,Created Date,Modified Date")                \
    X(Integer, SortbyNumeric, 0)                                                                   \
    X(Byte, IsOpenFileAfterExport, 0)                                                              \
    X(Byte, IsOpenFolderSplitPDF, 0)                                                               \
    X(Byte, IsDefaultPathSplitPDF, 0)                                                              \
    X(Text, DefaultPathSplitPDF, "")                                                               \
    X(Byte, IsOpenFolderSplitTIFF, 0)                                                              \
    X(Byte, IsDefaultPathSplitTIFF, 0)                                                             \
    X(Text, DefaultPathSplitTIFF, "")                                                              \
    X(Byte, IsOpenFileAftCombPDF, 0)                                                               \
    X(Byte, IsDefaultPathCombPDF, 0)                                                               \
    X(Text, DefaultPathCombPDF, "")                                                                \
    X(Byte, IsOpenFileAftCombTIFF, 0)                                                              \
    X(Byte, IsDefaultPathCombTIFF, 0)                                                              \
    X(Text, DefaultPathCombTIFF, "")                                                               \
    X(Byte, IsOpenFileMConvToPDF, 0)                                                               \
    X(Byte, IsDefaultPathMConvToPDF, 0)                                                            \
    X(Text, DefaultPathMConvToPDF, "")                                                             \
    X(Byte, IsOpenFolderAftConvEToPDF, 0)                                                          \
    X(Byte, IsDefaultPathConvEToPDF, 0)                                                            \
    X(Text, DefaultPathConvEToPDF, "")                                                             \
    X(Byte, IsOpenFolderPdfInfoUpdate, 0)                                                          \
    X(Byte, IsDefaultPathPdfInfoUpdate, 0)                                                         \
    X(Text, DefaultPathPdfInfoUpdate, "")                                                          \
    X(Byte, IsOpenFolderAppPDf, 0)                                                                 \
    X(Byte, IsDefaultPathAppPDf, 0)                                                                \
    X(Text, DefaultPathAppPDf, "")                                                                 \
    X(Byte, IsOpenFolderConImgTiff, 0)                                                             \
    X(Byte, IsDefaultPathConImgTiff, 0)                                                            \
    X(Text, DefaultPathConImgTiff, "")                                                             \
    X(Byte, IsOpenFolderConPdfToTiff, 0)                                                           \
    X(Byte, IsDefaultPathConPdfToTiff, 0)                                                          \
    X(Text, DefaultPathConPdfToTiff, "")                                                           \
    X(Byte, IsOpenFolderCloneDir, 0)                                                               \
    X(Byte, IsDefaultPathCloneDir, 0)                                                              \
    X(Text, DefaultPathCloneDir, "")                                                               \
    /* The pages made from images: a paper name ("" the image's own size), and the resolution of   \
       images that state none (0: 72 dpi). A file from before them reads as these defaults. */     \
    X(Text, PageSize, "")                                                                          \
    X(Integer, ImageResolution, 0)                                                                 \
    X(Byte, IsSearchablePdf, 0)                                                                    \
    X(Text, OcrLanguage, "eng")

namespace settings_types {
using Text = QString;
using Byte = uint8_t;
using Integer = int16_t;
using Long = int32_t;
} // namespace settings_types

class UiServices;

// The folder searched at a first start: the user's home, where a Linux desktop keeps the
// user's files (searching from "/" would crawl the whole system). "/" only without a home.
QString HomeFolder();

class Settings {
public:
    // The file lives in "Settings" below `storagePath`; `ui` shows why a save could not start.
    Settings(const QString &storagePath, UiServices &ui) : storagePath_(storagePath), ui_(ui) {}
    virtual ~Settings() = default;

#define PW_SETTINGS_ACCESSORS(type, key, def)                                                      \
    const settings_types::type &key() const                                                        \
    {                                                                                              \
        return key##_;                                                                             \
    }                                                                                              \
    void set##key(const settings_types::type &value)                                               \
    {                                                                                              \
        key##_ = value;                                                                            \
        SaveSettings();                                                                            \
    }
    PW_SETTINGS_KEYS(PW_SETTINGS_ACCESSORS)
#undef PW_SETTINGS_ACCESSORS

    // Fills every field from the file; false when there is no file or a read failed (the
    // fields read so far keep their new values, and the failure is logged).
    bool LoadSettings();
    // Writes every field to the file. A failure before the write shows its text; a failed
    // write throws all settings away and starts over from the defaults, and a failure of that
    // recovery is raised to the caller.
    void SaveSettings();
    // Sets the defaults and saves once. IsDefaultPathCloneDir keeps the value it has.
    void LoadDefaultSettings();

    QString settingsFolder() const;
    QString settingsFile() const;

protected:
    // Puts `block` in the file: through a new file renamed into place where one can be made
    // beside it, else over the file's own bytes. Raises a RuntimeError when neither works.
    // Tests override it to make the write fail.
    virtual void writeBlock(const QString &path, const QByteArray &block);

private:
    void recoverFromFailedWrite(const QString &path);

#define PW_SETTINGS_FIELD(type, key, def) settings_types::type key##_{};
    PW_SETTINGS_KEYS(PW_SETTINGS_FIELD)
#undef PW_SETTINGS_FIELD

    QString storagePath_;
    UiServices &ui_;
    bool recovering_ = false;
};

} // namespace pw
