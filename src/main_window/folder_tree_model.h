#pragma once
// The folders of the tree pane, loaded level by level as the user opens them. Its first
// root is "Desktop", which the tree reports by that name (the search resolves it to the
// desktop folder); the second is the file system's root.

#include <QStandardItemModel>

namespace pw {

class FolderTreeModel : public QStandardItemModel {
    Q_OBJECT
public:
    explicit FolderTreeModel(QObject *parent = nullptr);

    // The folder an item stands for; "Desktop" for the desktop root.
    QString pathOf(const QModelIndex &index) const;
    // The item of `path`, loading the levels on the way; invalid when the folder is not there.
    QModelIndex indexForPath(const QString &path);
    // Loads the subfolders of `index` unless they are loaded already.
    void populate(const QModelIndex &index);

private:
    QStandardItem *addFolder(QStandardItem *parent, const QString &name, const QString &path);
};

} // namespace pw
