#include "sandbox.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>

SandboxDir::SandboxDir() : dir_(QDir::tempPath() + "/pw-test-XXXXXX") {}

QString SandboxDir::write(const QString &relative, const QByteArray &bytes) const
{
    const QString full = filePath(relative);
    QDir().mkpath(QFileInfo(full).absolutePath());
    QFile f(full);
    if (f.open(QIODevice::WriteOnly))
        f.write(bytes);
    return full;
}

QString SandboxDir::mkdir(const QString &relative) const
{
    const QString full = filePath(relative);
    QDir().mkpath(full);
    return full;
}

QString corpusDir()
{
    const QString dir = QStringLiteral(PAGEWRIGHT_CORPUS_DIR);
    return QFileInfo(dir).isDir() ? QDir(dir).canonicalPath() : QString();
}

QByteArray readFile(const QString &path)
{
    QFile f(path);
    return f.open(QIODevice::ReadOnly) ? f.readAll() : QByteArray();
}
