#pragma once
// Path and file helpers with the exact answers the rest of the program depends on. The
// separator is the native one; a root keeps its separator.

#include <QDateTime>
#include <QString>

#include <cstdint>

class QFileInfo;

namespace pw {

// Special folder ids the program asks for.
enum SpecialFolder : int32_t { FolderDesktop = 0, FolderAppData = 26 };

inline QString separator()
{
    return QStringLiteral("/");
}

QString TrimNull(const QString &text);      // the text up to its first NUL
QString ValidateDir(const QString &path);   // the path with one trailing separator
QString GetSpecialfolder(int32_t folderId); // "" when the system has no such folder
// The folder tree's root "Desktop" as the desktop's path; a path that merely contains the word
// is left alone.
QString ResolveDesktop(const QString &folder);
// The user guide (help.html) for a program in `programFolder`: beside the program, as in the
// build tree, else in the installed documentation folder ("../share/doc/pagewright" from an
// installed program's folder). "" when neither has it.
QString FindUserGuide(const QString &programFolder);
bool FileExists(const QString &path); // a file, not a folder
// A folder, or a file, of that name. One trailing separator is removed from `path` itself.
bool FolderExists(QString &path);
bool DeleteFileIfExists(const QString &path);
bool CreateFolderPath(const QString &path); // makes every missing level
// A character no file name may hold: | \ / * : ? " < >.
bool IsReservedFileNameChar(int keyAscii);
QString GetFileExt(const QString &name);  // text after the last "."; the name when none
int16_t HiWord(int32_t value);            // value / 65535 toward zero, minus 1 when negative
QString GetFileName(const QString &path); // last component of a path
// The name up to, not including, its last dot. A name without a dot raises 5, which ends the
// caller's run through its failure tail.
QString NameBeforeLastDot(const QString &name);
// The folder an operation on `file` writes into inside `outputFolder`: the file's name up to its
// last dot. Raises 5 for a name without a dot.
QString FolderNamedAfter(const QString &file, const QString &outputFolder);
QString GetParentFolderName(const QString &path); // "" when the path has no parent part

// When the file was made. Not every file system records a birth time; the last status
// change stands in.
QDateTime CreatedTime(const QFileInfo &file);

// The folder for temporary files, with a trailing separator; raises 10000 | errno when
// there is none.
QString TempFolder();
// Creates a new empty file named after `prefix` in `folder` ("" for the temporary folder)
// and returns its path. Raises 10000 | errno with the cursor's source on failure.
QString TempFileName(const QString &prefix, const QString &folder = {});
// The system's text for an error code, or "".
QString SystemErrorText(int code);

} // namespace pw
