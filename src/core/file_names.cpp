#include "file_names.h"

#include <sys/stat.h>

#include <cerrno>

namespace pw {

namespace {

constexpr char16_t kEscapedByte = 0xDC00;

bool isContinuation(unsigned char c)
{
    return (c & 0xC0) == 0x80;
}

// The length of the valid UTF-8 sequence at `at`, 0 when there is none (overlong forms,
// surrogates and values past U+10FFFF are not valid).
int validSequence(const QByteArray &bytes, qsizetype at, char32_t &code)
{
    const auto byte = [&](qsizetype i) { return static_cast<unsigned char>(bytes[i]); };
    const unsigned char lead = byte(at);
    int length = lead < 0x80                    ? 1
                 : lead >= 0xC2 && lead <= 0xDF ? 2
                 : (lead & 0xF0) == 0xE0        ? 3
                 : lead >= 0xF0 && lead <= 0xF4 ? 4
                                                : 0;
    if (length == 0 || at + length > bytes.size())
        return 0;
    code = length == 1 ? lead : lead & (0x7F >> length);
    for (int i = 1; i < length; ++i) {
        if (!isContinuation(byte(at + i)))
            return 0;
        code = (code << 6) | (byte(at + i) & 0x3F);
    }
    const bool overlong = (length == 3 && code < 0x800) || (length == 4 && code < 0x10000);
    const bool surrogate = code >= 0xD800 && code <= 0xDFFF;
    return overlong || surrogate || code > 0x10FFFF ? 0 : length;
}

void appendUtf8(QByteArray &out, char32_t code)
{
    if (code < 0x80) {
        out += char(code);
    } else if (code < 0x800) {
        out += char(0xC0 | (code >> 6));
        out += char(0x80 | (code & 0x3F));
    } else if (code < 0x10000) {
        out += char(0xE0 | (code >> 12));
        out += char(0x80 | ((code >> 6) & 0x3F));
        out += char(0x80 | (code & 0x3F));
    } else {
        out += char(0xF0 | (code >> 18));
        out += char(0x80 | ((code >> 12) & 0x3F));
        out += char(0x80 | ((code >> 6) & 0x3F));
        out += char(0x80 | (code & 0x3F));
    }
}

bool isEscapedByte(char16_t unit)
{
    return unit >= kEscapedByte + 0x80 && unit <= kEscapedByte + 0xFF;
}

int hexValue(QChar c)
{
    const char16_t u = c.unicode();
    return u >= '0' && u <= '9'   ? u - '0'
           : u >= 'a' && u <= 'f' ? u - 'a' + 10
           : u >= 'A' && u <= 'F' ? u - 'A' + 10
                                  : -1;
}

bool statPath(const QString &path, struct stat &info)
{
    return ::stat(EncodeFileName(path).constData(), &info) == 0;
}

} // namespace

QString DecodeFileName(const QByteArray &bytes)
{
    QString name;
    name.reserve(bytes.size());
    for (qsizetype at = 0; at < bytes.size();) {
        char32_t code = 0;
        const int length = validSequence(bytes, at, code);
        if (length == 0) {
            name += QChar(char16_t(kEscapedByte + static_cast<unsigned char>(bytes[at])));
            ++at;
            continue;
        }
        const char32_t one[] = {code};
        name += QString::fromUcs4(one, 1);
        at += length;
    }
    return name;
}

QByteArray EncodeFileName(const QString &name)
{
    QByteArray bytes;
    bytes.reserve(name.size());
    for (qsizetype i = 0; i < name.size(); ++i) {
        const char16_t unit = name[i].unicode();
        if (isEscapedByte(unit)) {
            bytes += char(unit - kEscapedByte);
        } else if (QChar::isHighSurrogate(unit) && i + 1 < name.size() &&
                   name[i + 1].isLowSurrogate()) {
            appendUtf8(bytes, QChar::surrogateToUcs4(unit, name[i + 1].unicode()));
            ++i;
        } else {
            appendUtf8(bytes, QChar::isSurrogate(unit) ? char32_t(0xFFFD) : char32_t(unit));
        }
    }
    return bytes;
}

QString EncodeOneLine(const QString &text)
{
    QString out;
    out.reserve(text.size());
    for (const QChar c : text) {
        const char16_t u = c.unicode();
        if (u == '\\')
            out += "\\\\";
        else if (u == '\r')
            out += "\\r";
        else if (u == '\n')
            out += "\\n";
        else if (isEscapedByte(u))
            out += QString("\\x%1").arg(unsigned(u - kEscapedByte), 2, 16, QChar('0'));
        else
            out += c;
    }
    return out;
}

QString DecodeOneLine(const QString &text)
{
    QString out;
    out.reserve(text.size());
    for (qsizetype i = 0; i < text.size(); ++i) {
        const QChar next = i + 1 < text.size() ? text[i + 1] : QChar();
        if (text[i] != '\\' || next.isNull()) {
            out += text[i];
        } else if (next == '\\' || next == 'r' || next == 'n') {
            out += next == 'r' ? QChar('\r') : next == 'n' ? QChar('\n') : QChar('\\');
            ++i;
        } else if (next == 'x' && i + 3 < text.size() && hexValue(text[i + 2]) >= 0 &&
                   hexValue(text[i + 3]) >= 0) {
            const int byte = hexValue(text[i + 2]) * 16 + hexValue(text[i + 3]);
            out += byte < 0x80 ? QChar(byte) : QChar(char16_t(kEscapedByte + byte));
            i += 3;
        } else {
            out += text[i];
        }
    }
    return out;
}

bool IdentifyFolder(const QString &path, FolderIdentity &identity)
{
    struct stat info {};
    if (!statPath(path, info) || !S_ISDIR(info.st_mode))
        return false;
    identity = {info.st_dev, info.st_ino};
    return true;
}

bool IsRegularFilePath(const QString &path)
{
    struct stat info {};
    return statPath(path, info) && S_ISREG(info.st_mode);
}

bool IsFolderPath(const QString &path)
{
    struct stat info {};
    return statPath(path, info) && S_ISDIR(info.st_mode);
}

bool MakeFolderPath(const QString &path)
{
    const QByteArray bytes = EncodeFileName(path);
    // Each level in turn, from the top: a level that exists already is passed over.
    for (qsizetype slash = bytes.indexOf('/', 1); slash != -1;
         slash = bytes.indexOf('/', slash + 1))
        if (::mkdir(bytes.left(slash).constData(), 0777) != 0 && errno != EEXIST)
            return false;
    if (::mkdir(bytes.constData(), 0777) != 0 && errno != EEXIST)
        return false;
    return IsFolderPath(path);
}

} // namespace pw
