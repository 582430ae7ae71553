#pragma once
// A block of named, typed values (text, byte, 16-bit and 32-bit integers) that is written and
// read as one contiguous value. Names are found without regard to case; an absent name reads
// as an empty value.

#include <QByteArray>
#include <QString>
#include <QVariant>

#include <cstdint>
#include <vector>

namespace pw {

class PropertyBag {
public:
    void WriteProperty(const QString &name, const QString &value);
    void WriteProperty(const QString &name, uint8_t value);
    void WriteProperty(const QString &name, int16_t value);
    void WriteProperty(const QString &name, int32_t value);

    // The stored value, or an invalid QVariant when the bag has no such name.
    QVariant ReadProperty(const QString &name) const;

    // The whole block: its length, then the entries. Reading takes its length from the block,
    // so bytes behind it are ignored.
    QByteArray Contents() const;
    // Replaces the bag's entries; raises 321 "Invalid file format" for anything that is not a
    // complete block.
    void setContents(const QByteArray &block);

private:
    void put(const QString &name, QVariant value);
    std::vector<std::pair<QString, QVariant>> entries_;
};

} // namespace pw
