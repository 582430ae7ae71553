#pragma once
// File names are bytes. A name that is not valid UTF-8 is still a file the user has, so it is
// carried through the program losslessly: each byte that is not part of a valid UTF-8 sequence
// becomes the code unit U+DC80..U+DCFF (Python's "surrogateescape"), and goes back to the file
// system as that byte. Valid names are plain UTF-8 both ways, as Qt spells them.

#include <QByteArray>
#include <QString>

#include <sys/types.h>

namespace pw {

QString DecodeFileName(const QByteArray &bytes);
QByteArray EncodeFileName(const QString &name);

// Files that hold one value or one record per line (Clone.ini, Errors.Log) take names that may
// contain line breaks: "\" becomes "\\", CR "\r", LF "\n", and an escaped byte "\xHH", so every
// value stays on its line and reads back whole.
QString EncodeOneLine(const QString &text);
QString DecodeOneLine(const QString &text);

// A folder's identity on its device, to enter each real folder once however many links lead
// to it. False when the path is no folder (after following links) or cannot be looked at.
struct FolderIdentity {
    dev_t device = 0;
    ino_t inode = 0;
    auto operator<=>(const FolderIdentity &) const = default;
};
bool IdentifyFolder(const QString &path, FolderIdentity &identity);

// Kinds of a path after following links, asked by its bytes.
bool IsRegularFilePath(const QString &path);
bool IsFolderPath(const QString &path);
// Makes every missing level of `path`; true when the folder exists afterwards.
bool MakeFolderPath(const QString &path);

} // namespace pw
