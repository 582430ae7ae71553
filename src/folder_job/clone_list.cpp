#include "clone_list.h"

#include "core/file_names.h"
#include "core/path_helpers.h"
#include "core/runtime.h"

#include <QFile>
#include <QSaveFile>

#include <pugixml.hpp>

#include <algorithm>
#include <cerrno>
#include <sstream>

namespace pw {

namespace {

const QByteArray kHeader = "<?xml version = \"1.0\"?>";
const QByteArray kTail = "</Files></Clone>";

// Names go in as the file system spells them, bytes that are not UTF-8 included.
QByteArray escaped(const QString &value)
{
    QByteArray out;
    for (const char c : EncodeFileName(value)) {
        switch (c) {
        case '&':
            out += "&amp;";
            break;
        case '<':
            out += "&lt;";
            break;
        case '>':
            out += "&gt;";
            break;
        case '"':
            out += "&quot;";
            break;
        case '\t':
            out += "&#9;";
            break;
        case '\n':
            out += "&#10;";
            break;
        case '\r':
            out += "&#13;";
            break;
        default:
            out += c;
        }
    }
    return out;
}

// One File with an empty status and the blanks that its outcome will take.
QByteArray fileElement(const CloneFileEntry &f)
{
    return "<File name=\"" + escaped(f.name) + "\" path=\"" + escaped(f.path) + "\" targetfile=\"" +
           escaped(f.targetfile) + "\" targetfolder=\"" + escaped(f.targetfolder) +
           "\" status=\"\"" + QByteArray(kStatusSlot, ' ') + "/>";
}

QByteArray skeleton(const CloneEncodings &e)
{
    return kHeader + "<Clone><Settings EncodColor=\"" + escaped(e.EncodColor) +
           "\" EncodGraycale=\"" + escaped(e.EncodGraycale) + "\" EncodBW=\"" + escaped(e.EncodBW) +
           "\"" + (e.ocr.isEmpty() ? QByteArray() : " Ocr=\"" + escaped(e.ocr) + "\"") +
           "/><Files>" + kTail;
}

// A list that cannot be written: "Disk full" when there is no room (or quota) left, so that
// the job can say why it stopped.
[[noreturn]] void cannotWrite(int error = errno)
{
    throw RuntimeError::fromNumber(WriteFailureNumber(error));
}

// Replaces the whole file, so that a crash leaves the old list or the new one.
void writeWhole(const QString &path, const QByteArray &bytes)
{
    QSaveFile file(path);
    if (!file.open(QIODevice::WriteOnly) || file.write(bytes) != bytes.size() || !file.commit())
        cannotWrite();
}

QByteArray serialized(const pugi::xml_document &doc)
{
    std::ostringstream out;
    for (pugi::xml_node node = doc.first_child(); node; node = node.next_sibling())
        if (node.type() == pugi::node_element)
            node.print(out, "", pugi::format_raw);
    return kHeader + QByteArray::fromStdString(out.str());
}

bool loadDocument(pugi::xml_document &doc, const QString &path)
{
    return doc.load_file(QFile::encodeName(path).constData(), pugi::parse_default).status ==
           pugi::status_ok;
}

} // namespace

CloneListWriter::CloneListWriter(QString xmlPath) : xmlPath_(std::move(xmlPath)) {}

CloneListWriter::~CloneListWriter() = default;

void CloneListWriter::startNewJob(const CloneEncodings &encodings)
{
    DeleteFileIfExists(xmlPath_);
    const QByteArray bytes = skeleton(encodings);
    writeWhole(xmlPath_, bytes);
    size_ = bytes.size();
    tail_ = size_ - kTail.size();
}

bool CloneListWriter::ourTailIsThere() const
{
    QFile file(xmlPath_);
    if (tail_ < 0 || file.size() != size_ || !file.open(QIODevice::ReadOnly) || !file.seek(tail_))
        return false;
    return file.read(kTail.size()) == kTail;
}

void CloneListWriter::AddCloneXmlFile(const CloneFileEntry &f)
{
    const bool exists = IsRegularFilePath(ValidateDir(f.path) + f.name);
    if (!ourTailIsThere()) {
        rebuildFrom(exists ? &f : nullptr);
        return;
    }
    if (!exists)
        return;
    // One write over the old closing tags: before it the list ends at the last file, after
    // it at this one; there is no moment in between.
    const QByteArray bytes = fileElement(f) + kTail;
    QFile file(xmlPath_);
    if (!file.open(QIODevice::ReadWrite | QIODevice::Unbuffered) || !file.seek(tail_))
        cannotWrite();
    if (file.write(bytes) != bytes.size()) {
        const int error = errno;
        // Cut short (a full disk): the list is put back as it ended before, its closing tags
        // written into room it already had, so that a failed append never loses the list.
        file.resize(size_);
        file.seek(tail_);
        file.write(kTail);
        cannotWrite(error);
    }
    tail_ += bytes.size() - kTail.size();
    size_ = tail_ + kTail.size();
}

// A list someone else wrote, or none, or a damaged one: taken up through the parser, or
// replaced by a skeleton, and from then on appended to as our own.
void CloneListWriter::rebuildFrom(const CloneFileEntry *f)
{
    pugi::xml_document doc;
    pugi::xml_node files;
    if (QFile::exists(xmlPath_) && loadDocument(doc, xmlPath_))
        files = doc.child("Clone").child("Files");
    QByteArray bytes;
    if (!files) {
        bytes = skeleton({});
    } else {
        bytes = serialized(doc);
        if (!bytes.endsWith(kTail)) {
            // A list whose Files is not last, or is written <Files/>: appended through the
            // parser, whole, each time.
            if (f) {
                pugi::xml_node file = files.append_child("File");
                for (const auto &[name, value] : {std::pair{"name", f->name},
                                                  {"path", f->path},
                                                  {"targetfile", f->targetfile},
                                                  {"targetfolder", f->targetfolder},
                                                  {"status", QString()}})
                    file.append_attribute(name).set_value(EncodeFileName(value).constData());
            }
            writeWhole(xmlPath_, serialized(doc));
            tail_ = size_ = -1;
            return;
        }
    }
    if (f)
        bytes.insert(bytes.size() - kTail.size(), fileElement(*f));
    writeWhole(xmlPath_, bytes);
    size_ = bytes.size();
    tail_ = size_ - kTail.size();
}

struct CloneList::Impl {
    QString path;
    QByteArray raw;
    pugi::xml_document doc;
    std::vector<pugi::xml_node> nodes;
    std::vector<qint64> slotOffsets; // where each node's status value starts, -1 without a slot
    QFile file;

    // The offset of the status value of the tag at `from` when blanks behind it make room for
    // the longest outcome.
    qint64 slotAt(qint64 from) const
    {
        const qsizetype end = raw.indexOf('>', from);
        qsizetype at = raw.indexOf(" status=\"", from);
        if (at < 0 || (end >= 0 && at > end))
            return -1;
        at += 9;
        const qsizetype close = raw.indexOf('"', at);
        if (close < 0)
            return -1;
        qsizetype blanks = close + 1;
        while (blanks < raw.size() && raw[blanks] == ' ')
            ++blanks;
        return blanks - at - 1 >= kStatusSlot ? at : -1;
    }
};

CloneList::CloneList() : d(std::make_unique<Impl>()) {}

CloneList::~CloneList() = default;

bool CloneList::load(const QString &xmlPath)
{
    d->path = xmlPath;
    QFile file(xmlPath);
    if (!file.open(QIODevice::ReadOnly))
        return false;
    d->raw = file.readAll();
    if (d->doc.load_buffer(d->raw.constData(), size_t(d->raw.size())).status != pugi::status_ok)
        return false;
    for (pugi::xml_node node : d->doc.child("Clone").child("Files").children()) {
        d->nodes.push_back(node);
        // Only a tag of ours, whose status holds no entity, is rewritten in place.
        const pugi::xml_attribute status = node.attribute("status");
        const bool plain =
            status && QByteArray(status.value()).indexOf('&') < 0 && node.offset_debug() >= 0;
        d->slotOffsets.push_back(plain ? d->slotAt(node.offset_debug()) : -1);
    }
    return true;
}

CloneEncodings CloneList::settings(bool &found) const
{
    const pugi::xml_node s = d->doc.child("Clone").child("Settings");
    found = bool(s);
    const auto text = [&](const char *name) {
        return QString::fromUtf8(s.attribute(name).value());
    };
    return {text("EncodColor"), text("EncodGraycale"), text("EncodBW"), text("Ocr")};
}

bool CloneList::hasFiles() const
{
    return bool(d->doc.child("Clone").child("Files"));
}

int CloneList::count() const
{
    return int(d->nodes.size());
}

QString CloneList::attribute(int index, const char *name) const
{
    const pugi::xml_attribute a = d->nodes.at(size_t(index)).attribute(name);
    if (!a)
        throw RuntimeError::fromNumber(91);
    return DecodeFileName(a.value());
}

void CloneList::setStatus(int index, const QString &status)
{
    pugi::xml_node node = d->nodes.at(size_t(index));
    node.attribute("status").set_value(status.toUtf8().constData());
    const qint64 slot = d->slotOffsets.at(size_t(index));
    const QByteArray text = status.toUtf8();
    if (slot < 0 || text.size() > kStatusSlot || text.contains('"') || text.contains('&') ||
        text.contains('<')) {
        // Written by the parser, the list has no slotOffsets any more.
        writeWhole(d->path, serialized(d->doc));
        std::fill(d->slotOffsets.begin(), d->slotOffsets.end(), -1);
        d->file.close();
        return;
    }
    if (!d->file.isOpen()) {
        d->file.setFileName(d->path);
        if (!d->file.open(QIODevice::ReadWrite | QIODevice::Unbuffered))
            cannotWrite();
    }
    // One write: the value, its quote, and blanks over what a longer value left.
    const QByteArray bytes = text + '"' + QByteArray(kStatusSlot - text.size(), ' ');
    if (!d->file.seek(slot) || d->file.write(bytes) != bytes.size())
        cannotWrite();
}

} // namespace pw
