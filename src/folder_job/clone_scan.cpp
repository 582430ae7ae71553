#include "clone_scan.h"

#include "clone_list.h"

#include "catalogue/search_criteria.h"
#include "core/path_helpers.h"

#include <QDir>
#include <QDirIterator>
#include <QFileInfo>

namespace pw {

QString CloneTargetFile(const QString &name)
{
    QString target = name;
    return target.replace(GetFileExt(name), "pdf", Qt::CaseSensitive);
}

namespace {

// What follows a last "." is dropped, as a file's extension would be.
QString baseName(const QString &path)
{
    const QString name = GetFileName(path);
    const qsizetype dot = name.lastIndexOf('.');
    return dot < 0 ? name : name.left(dot);
}

} // namespace

QString CloneTargetFolder(const QString &parent, const QString &output, const QString &sourceBox,
                          const QString &outputBox)
{
    if (sourceBox.trimmed().toUpper() == outputBox.trimmed().toUpper())
        return parent;
    const QString &source = sourceBox;
    if (parent == source)
        return output + separator() + baseName(parent);
    QString below = parent;
    below.remove(source, Qt::CaseSensitive);
    return output + separator() + baseName(source) + below;
}

int CloneScan::SearchCloneFiles(const QString &folder, const QString &output)
{
    int count = 0;
    const std::optional<QStringList> patterns = GenerateFilterPatternArray(filterPattern);
    // One reading of the folder, in the order the system gives; its files are taken before
    // its folders.
    QFileInfoList files;
    QFileInfoList folders;
    QDirIterator entries(folder,
                         QDir::AllEntries | QDir::NoDotAndDotDot | QDir::Hidden | QDir::System);
    while (entries.hasNext()) {
        entries.next();
        (entries.fileInfo().isDir() ? folders : files).append(entries.fileInfo());
    }
    for (const QFileInfo &file : files) {
        if (stopRequested())
            break;
        if (IsFileMatchWithFilterPattern(file.fileName(), patterns)) {
            const QString parent = file.absolutePath();
            // A file the list cannot take is counted all the same: the walk passes over the
            // failure and goes on.
            try {
                list->AddCloneXmlFile({file.fileName(), parent, CloneTargetFile(file.fileName()),
                                       CloneTargetFolder(parent, output, sourceBox, outputBox)});
            } catch (...) {
            }
            ++count;
        }
        if (stopRequested())
            break;
        yield();
    }
    for (const QFileInfo &sub : folders) {
        if (stopRequested())
            break;
        count += SearchCloneFiles(sub.absoluteFilePath(), output);
        yield();
    }
    return count;
}

} // namespace pw
