#pragma once

// A PDF file written front to back as pages arrive: each object goes to the file when it is
// made, stream data straight from the encoder or the input file, and only the page tree, the
// cross-reference table and the trailer wait for the end. Memory stays at the page in hand and
// no byte is copied through an intermediate document.

#include "file_ranges.h"

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace pw::i2p {

class PdfWriter {
public:
    // Writes to `fd`, an empty file open for writing; the descriptor stays the caller's.
    explicit PdfWriter(int fd);
    PdfWriter(const PdfWriter &) = delete;
    PdfWriter &operator=(const PdfWriter &) = delete;

    // A fresh object number; the object itself may be written later.
    int reserve();
    void beginObject(int number);
    void endObject();
    // A stream object: `dict` is the dictionary's inside, /Length is added here.
    void writeStream(int number, std::string_view dict, const std::vector<uint8_t> &data);
    void writeStream(int number, std::string_view dict, const FileRanges &data);
    void write(std::string_view text);
    void write(const uint8_t *data, size_t size);
    uint64_t offset() const { return offset_ + buffer_.size(); }

    // Everything written after a mark can be taken back, for an input that fails half way.
    struct Mark {
        uint64_t offset;
        size_t objects;
    };
    Mark mark();
    void rollback(const Mark &m);

    // Writes the cross-reference table and trailer and sets the header's version ("1.4").
    // Throws pw::Failure when the file cannot be written.
    void finish(int root, const std::string &version, bool fixedId);

private:
    void flush();
    void writeAt(uint64_t at, const uint8_t *data, size_t size);
    void copyRanges(const FileRanges &data);

    int fd_;
    uint64_t offset_ = 0; // of the first byte in buffer_
    std::string buffer_;
    std::vector<uint64_t> offsets_; // of objects 1, 2, ...; 0 while not written
};

// "12.5" for 12.5, "3" for 3.0: short PDF numbers.
std::string pdfNumber(double v);
// A PDF string of arbitrary bytes, in hexadecimal.
std::string pdfHexString(std::string_view bytes);

} // namespace pw::i2p
