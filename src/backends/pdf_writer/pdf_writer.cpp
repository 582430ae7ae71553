#include "pdf_writer.h"

#include "failure.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <random>

namespace pw::i2p {

namespace {

constexpr size_t kBufferBytes = 64 * 1024;

[[noreturn]] void writeFailed()
{
    throw writeFailure(errno, std::string("cannot write the PDF: ") + std::strerror(errno));
}

class InputFile {
public:
    explicit InputFile(const std::string &path) : fd_(::open(path.c_str(), O_RDONLY | O_CLOEXEC)) {}
    ~InputFile()
    {
        if (fd_ >= 0)
            ::close(fd_);
    }
    InputFile(const InputFile &) = delete;
    InputFile &operator=(const InputFile &) = delete;
    int fd() const { return fd_; }

private:
    int fd_;
};

// The kernel copies file to file without the data passing through us; where it cannot (another
// file system on an old kernel), a plain read and write loop does.
bool copyInKernel(int in, uint64_t from, int out, uint64_t to, uint64_t length)
{
    loff_t inOff = loff_t(from), outOff = loff_t(to);
    while (length > 0) {
        const ssize_t n = ::copy_file_range(in, &inOff, out, &outOff, size_t(length), 0);
        if (n < 0 && errno == EINTR)
            continue;
        if (n <= 0)
            return false;
        length -= uint64_t(n);
    }
    return true;
}

} // namespace

PdfWriter::PdfWriter(int fd) : fd_(fd)
{
    buffer_.reserve(kBufferBytes);
    // The version is set at the end, when every page has said what it needs.
    write("%PDF-1.4\n%\xE2\xE3\xCF\xD3\n");
}

int PdfWriter::reserve()
{
    offsets_.push_back(0);
    return int(offsets_.size());
}

void PdfWriter::beginObject(int number)
{
    offsets_.at(size_t(number) - 1) = offset();
    write(std::to_string(number) + " 0 obj\n");
}

void PdfWriter::endObject()
{
    write("\nendobj\n");
}

void PdfWriter::writeStream(int number, std::string_view dict, const std::vector<uint8_t> &data)
{
    beginObject(number);
    write("<<" + std::string(dict) + " /Length " + std::to_string(data.size()) + " >>\nstream\n");
    write(data.data(), data.size());
    write("\nendstream");
    endObject();
}

void PdfWriter::writeStream(int number, std::string_view dict, const FileRanges &data)
{
    uint64_t length = 0;
    for (const auto &range : data.ranges)
        length += range.second;
    beginObject(number);
    write("<<" + std::string(dict) + " /Length " + std::to_string(length) + " >>\nstream\n");
    copyRanges(data);
    write("\nendstream");
    endObject();
}

void PdfWriter::write(std::string_view text)
{
    write(reinterpret_cast<const uint8_t *>(text.data()), text.size());
}

void PdfWriter::write(const uint8_t *data, size_t size)
{
    if (buffer_.size() + size <= kBufferBytes) {
        buffer_.append(reinterpret_cast<const char *>(data), size);
        return;
    }
    flush();
    if (size < kBufferBytes) {
        buffer_.append(reinterpret_cast<const char *>(data), size);
        return;
    }
    writeAt(offset_, data, size);
    offset_ += size;
}

void PdfWriter::flush()
{
    writeAt(offset_, reinterpret_cast<const uint8_t *>(buffer_.data()), buffer_.size());
    offset_ += buffer_.size();
    buffer_.clear();
}

void PdfWriter::writeAt(uint64_t at, const uint8_t *data, size_t size)
{
    while (size > 0) {
        const ssize_t n = ::pwrite(fd_, data, size, off_t(at));
        if (n < 0 && errno == EINTR)
            continue;
        if (n <= 0)
            writeFailed();
        data += n;
        size -= size_t(n);
        at += uint64_t(n);
    }
}

void PdfWriter::copyRanges(const FileRanges &data)
{
    flush();
    InputFile in(data.path);
    struct stat st {};
    // The data was looked at when the page was read; a file changed since would be cut apart.
    if (in.fd() < 0 || ::fstat(in.fd(), &st) != 0 || int64_t(st.st_size) != data.fileSize ||
        int64_t(st.st_mtime) != data.modified)
        throw invalidFormat("the file changed while it was read: " + data.path);
    for (const auto &[from, length] : data.ranges) {
        if (!copyInKernel(in.fd(), from, fd_, offset_, length)) {
            std::vector<uint8_t> chunk(std::min<uint64_t>(length, 1u << 20));
            for (uint64_t done = 0; done < length;) {
                const ssize_t n =
                    ::pread(in.fd(), chunk.data(), std::min<uint64_t>(chunk.size(), length - done),
                            off_t(from + done));
                if (n < 0 && errno == EINTR)
                    continue;
                if (n <= 0)
                    throw invalidFormat("the file was cut short while it was read: " + data.path);
                writeAt(offset_ + done, chunk.data(), size_t(n));
                done += uint64_t(n);
            }
        }
        offset_ += length;
    }
}

PdfWriter::Mark PdfWriter::mark()
{
    // Bytes still buffered belong before the mark; a rollback must not drop them.
    flush();
    return {offset_, offsets_.size()};
}

void PdfWriter::rollback(const Mark &m)
{
    buffer_.clear();
    offset_ = m.offset;
    offsets_.resize(m.objects);
    // What lies past the mark is rewritten or cut off at the end.
    if (::ftruncate(fd_, off_t(m.offset)) != 0)
        writeFailed();
}

void PdfWriter::finish(int root, const std::string &version, bool fixedId)
{
    for (size_t i = 0; i < offsets_.size(); ++i) {
        if (offsets_[i] != 0)
            continue;
        beginObject(int(i) + 1);
        write("null");
        endObject();
    }
    const uint64_t xref = offset();
    std::string table = "xref\n0 " + std::to_string(offsets_.size() + 1) + "\n";
    table += "0000000000 65535 f \n";
    char entry[24];
    for (uint64_t at : offsets_) {
        std::snprintf(entry, sizeof entry, "%010llu 00000 n \n",
                      static_cast<unsigned long long>(at));
        table += entry;
    }
    write(table);
    std::string id(16, '\0');
    if (!fixedId) {
        std::random_device random;
        for (char &c : id)
            c = char(random());
    }
    const std::string hexId = pdfHexString(id);
    write("trailer\n<< /Size " + std::to_string(offsets_.size() + 1) + " /Root " +
          std::to_string(root) + " 0 R /ID [" + hexId + hexId + "] >>\nstartxref\n" +
          std::to_string(xref) + "\n%%EOF\n");
    flush();
    writeAt(5, reinterpret_cast<const uint8_t *>(version.data()),
            std::min<size_t>(version.size(), 3));
}

std::string pdfNumber(double v)
{
    char text[32];
    std::snprintf(text, sizeof text, "%.4f", v);
    std::string s = text;
    s.erase(s.find_last_not_of('0') + 1);
    if (s.back() == '.')
        s.pop_back();
    return s;
}

std::string pdfHexString(std::string_view bytes)
{
    static constexpr char kDigits[] = "0123456789ABCDEF";
    std::string out = "<";
    for (unsigned char c : bytes) {
        out += kDigits[c >> 4];
        out += kDigits[c & 15];
    }
    return out + ">";
}

} // namespace pw::i2p
