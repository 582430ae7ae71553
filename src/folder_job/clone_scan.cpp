#include "clone_scan.h"

#include "clone_list.h"

#include "catalogue/search_criteria.h"
#include "core/path_helpers.h"

#include <QDir>

#include <dirent.h>

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

namespace {

// The names in `folder`, in the order the system gives, its files before its folders (a link
// counts as what it leads to; one leading nowhere as a file).
void listFolder(const QString &folder, QStringList &files, QStringList &folders)
{
    DIR *dir = ::opendir(EncodeFileName(folder).constData());
    if (!dir)
        return;
    while (const dirent *entry = ::readdir(dir)) {
        const QByteArray name(entry->d_name);
        if (name == "." || name == "..")
            continue;
        const QString decoded = DecodeFileName(name);
        (IsFolderPath(ValidateDir(folder) + decoded) ? folders : files).append(decoded);
    }
    ::closedir(dir);
}

} // namespace

int CloneScan::SearchCloneFiles(const QString &folder, const QString &output)
{
    FolderIdentity identity;
    if (!IdentifyFolder(folder, identity) || !entered.insert(identity).second)
        return 0;
    int count = 0;
    const std::optional<QStringList> patterns = GenerateFilterPatternArray(filterPattern);
    QStringList files;
    QStringList folders;
    listFolder(folder, files, folders);
    const QString parent = QDir::cleanPath(QDir(folder).absolutePath());
    for (const QString &name : files) {
        if (stopRequested())
            break;
        if (IsFileMatchWithFilterPattern(name, patterns)) {
            list->AddCloneXmlFile({name, parent, CloneTargetFile(name),
                                   CloneTargetFolder(parent, output, sourceBox, outputBox)});
            ++count;
        }
        if (stopRequested())
            break;
        yield();
    }
    for (const QString &sub : folders) {
        if (stopRequested())
            break;
        count += SearchCloneFiles(ValidateDir(parent) + sub, output);
        yield();
    }
    return count;
}

} // namespace pw
