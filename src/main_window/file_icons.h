#pragma once
// The icons behind the catalogue's picture keys: a MIME type name draws as the desktop's icon
// for that type, a path (a launcher's own picture) as that file's icon.

#include <QHash>
#include <QIcon>
#include <QString>

namespace pw {

class FileIcons {
public:
    QIcon operator()(const QString &pictureKey);

private:
    QHash<QString, QIcon> icons_;
};

} // namespace pw
