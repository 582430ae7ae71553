#pragma once

#include <QString>
#include <QTemporaryDir>

// A temporary folder tree for one test, removed with the object.
class SandboxDir {
public:
    SandboxDir();
    QString path() const { return dir_.path(); }
    // Absolute path of `relative` inside the sandbox.
    QString filePath(const QString &relative) const { return dir_.filePath(relative); }
    // Writes `bytes` to `relative`, creating the folders on the way; returns the absolute path.
    QString write(const QString &relative, const QByteArray &bytes) const;
    // Creates the folder `relative` (and its parents); returns the absolute path.
    QString mkdir(const QString &relative) const;

private:
    QTemporaryDir dir_;
};

// The folder of real sample files, or an empty string when it is not beside the checkout.
QString corpusDir();
// The bytes of `path`, empty when it cannot be read.
QByteArray readFile(const QString &path);

#include <ostream>

// Readable Qt strings in test failure messages.
inline void PrintTo(const QString &s, std::ostream *os)
{
    *os << '"' << s.toStdString() << '"';
}
