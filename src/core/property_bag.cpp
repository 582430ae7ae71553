#include "property_bag.h"

#include "runtime.h"

#include <QDataStream>
#include <QIODevice>

namespace pw {

namespace {

// Type tags of the block, the classic variant type numbers.
enum Tag : quint8 { TagInteger = 2, TagLong = 3, TagString = 8, TagByte = 17 };

constexpr quint32 maxEntries = 4096;

[[noreturn]] void badBlock()
{
    throw RuntimeError::fromNumber(321);
}

} // namespace

void PropertyBag::put(const QString &name, QVariant value)
{
    for (auto &[key, stored] : entries_) {
        if (key.compare(name, Qt::CaseInsensitive) == 0) {
            stored = std::move(value);
            return;
        }
    }
    entries_.emplace_back(name, std::move(value));
}

void PropertyBag::WriteProperty(const QString &name, const QString &value)
{
    put(name, value);
}
void PropertyBag::WriteProperty(const QString &name, uint8_t value)
{
    put(name, QVariant::fromValue<uchar>(value));
}
void PropertyBag::WriteProperty(const QString &name, int16_t value)
{
    put(name, QVariant::fromValue<short>(value));
}
void PropertyBag::WriteProperty(const QString &name, int32_t value)
{
    put(name, QVariant::fromValue<int>(value));
}

QVariant PropertyBag::ReadProperty(const QString &name) const
{
    for (const auto &[key, value] : entries_)
        if (key.compare(name, Qt::CaseInsensitive) == 0)
            return value;
    return {};
}

QByteArray PropertyBag::Contents() const
{
    QByteArray payload;
    QDataStream out(&payload, QIODevice::WriteOnly);
    out.setVersion(QDataStream::Qt_6_4);
    out << quint32(entries_.size());
    for (const auto &[name, value] : entries_) {
        out << name;
        switch (value.typeId()) {
        case QMetaType::UChar:
            out << quint8(TagByte) << quint8(value.value<uchar>());
            break;
        case QMetaType::Short:
            out << quint8(TagInteger) << qint16(value.value<short>());
            break;
        case QMetaType::Int:
            out << quint8(TagLong) << qint32(value.toInt());
            break;
        default:
            out << quint8(TagString) << value.toString();
            break;
        }
    }
    QByteArray block;
    QDataStream head(&block, QIODevice::WriteOnly);
    head << quint32(payload.size());
    return block + payload;
}

void PropertyBag::setContents(const QByteArray &block)
{
    QDataStream in(block);
    in.setVersion(QDataStream::Qt_6_4);
    quint32 length = 0;
    in >> length;
    if (in.status() != QDataStream::Ok || length > quint32(block.size() - 4))
        badBlock();
    QDataStream body(block.mid(4, length));
    body.setVersion(QDataStream::Qt_6_4);
    quint32 count = 0;
    body >> count;
    if (count > maxEntries)
        badBlock();
    std::vector<std::pair<QString, QVariant>> entries;
    for (quint32 i = 0; i < count && body.status() == QDataStream::Ok; ++i) {
        QString name;
        quint8 tag = 0;
        body >> name >> tag;
        QVariant value;
        switch (tag) {
        case TagByte: {
            quint8 v = 0;
            body >> v;
            value = QVariant::fromValue<uchar>(v);
            break;
        }
        case TagInteger: {
            qint16 v = 0;
            body >> v;
            value = QVariant::fromValue<short>(v);
            break;
        }
        case TagLong: {
            qint32 v = 0;
            body >> v;
            value = QVariant::fromValue<int>(v);
            break;
        }
        case TagString: {
            QString v;
            body >> v;
            value = v;
            break;
        }
        default:
            badBlock();
        }
        entries.emplace_back(name, value);
    }
    if (body.status() != QDataStream::Ok || !body.atEnd())
        badBlock();
    entries_ = std::move(entries);
}

} // namespace pw
