#include "folder_tree_model.h"

#include "core/path_helpers.h"

#include <QDir>
#include <QFileIconProvider>

namespace pw {

namespace {

constexpr int PathRole = Qt::UserRole + 1;
constexpr int LoadedRole = Qt::UserRole + 2;
const QString DesktopName = QStringLiteral("Desktop");

QIcon folderIcon()
{
    static const QIcon icon = QFileIconProvider().icon(QFileIconProvider::Folder);
    return icon;
}

} // namespace

FolderTreeModel::FolderTreeModel(QObject *parent) : QStandardItemModel(parent)
{
    auto *desktop = addFolder(invisibleRootItem(), DesktopName, GetSpecialfolder(FolderDesktop));
    desktop->setIcon(QFileIconProvider().icon(QFileIconProvider::Desktop));
    addFolder(invisibleRootItem(), separator(), separator());
}

QStandardItem *FolderTreeModel::addFolder(QStandardItem *parent, const QString &name,
                                          const QString &path)
{
    auto *item = new QStandardItem(folderIcon(), name);
    item->setEditable(false);
    item->setData(path, PathRole);
    item->setData(false, LoadedRole);
    // A placeholder child gives every folder its expander until it is opened.
    item->appendRow(new QStandardItem);
    parent->appendRow(item);
    return item;
}

QString FolderTreeModel::pathOf(const QModelIndex &index) const
{
    if (!index.isValid())
        return {};
    if (!index.parent().isValid() && index.row() == 0)
        return DesktopName;
    return index.data(PathRole).toString();
}

void FolderTreeModel::populate(const QModelIndex &index)
{
    QStandardItem *item = itemFromIndex(index);
    if (!item || item->data(LoadedRole).toBool())
        return;
    item->setData(true, LoadedRole);
    item->removeRows(0, item->rowCount());
    const QString path = item->data(PathRole).toString();
    const QFileInfoList folders = QDir(path).entryInfoList(
        QDir::Dirs | QDir::NoDotAndDotDot | QDir::Hidden, QDir::Name | QDir::IgnoreCase);
    for (const QFileInfo &folder : folders)
        addFolder(item, folder.fileName(), folder.absoluteFilePath());
}

QModelIndex FolderTreeModel::indexForPath(const QString &path)
{
    if (path == DesktopName)
        return index(0, 0);
    const QString clean = QDir::cleanPath(path);
    if (!QFileInfo(clean).isDir())
        return {};
    QModelIndex current = index(1, 0); // the file system's root
    for (const QString &name : clean.split(separator(), Qt::SkipEmptyParts)) {
        populate(current);
        QStandardItem *parent = itemFromIndex(current);
        QModelIndex next;
        for (int row = 0; row < parent->rowCount() && !next.isValid(); ++row)
            if (parent->child(row)->text() == name)
                next = parent->child(row)->index();
        if (!next.isValid())
            return {};
        current = next;
    }
    return current;
}

} // namespace pw
