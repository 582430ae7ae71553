#include "file_icons.h"

#include <QFileIconProvider>
#include <QFileInfo>
#include <QMimeDatabase>

namespace pw {

namespace {

QIcon iconOf(const QString &key)
{
    static const QFileIconProvider provider;
    if (QFileInfo(key).isAbsolute())
        return provider.icon(QFileInfo(key));
    static const QMimeDatabase mimes;
    const QMimeType mime = mimes.mimeTypeForName(key);
    QIcon icon = QIcon::fromTheme(mime.iconName(), QIcon::fromTheme(mime.genericIconName()));
    return icon.isNull() ? provider.icon(QAbstractFileIconProvider::File) : icon;
}

} // namespace

QIcon FileIcons::operator()(const QString &pictureKey)
{
    auto it = icons_.find(pictureKey);
    if (it == icons_.end())
        it = icons_.insert(pictureKey, iconOf(pictureKey));
    return *it;
}

} // namespace pw
