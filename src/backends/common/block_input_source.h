#pragma once

// A PDF file for qpdf read through a few large cached blocks. qpdf's own file source seeks and
// reads a few kilobytes at a time, each a pair of system calls: reading the cross-reference
// table and page tree of a long document then costs more in the kernel than in qpdf. For the
// modules built on qpdf.

#include <qpdf/InputSource.hh>
#include <qpdf/QUtil.hh>

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

namespace pw {

class BlockInputSource final : public InputSource {
public:
    // Takes `fd`, open for reading, and closes it with the source.
    BlockInputSource(std::string name, int fd) : name_(std::move(name)), fd_(fd) {}
    ~BlockInputSource() override { ::close(fd_); }
    BlockInputSource(const BlockInputSource &) = delete;
    BlockInputSource &operator=(const BlockInputSource &) = delete;

    // As qpdf's file source: the offset of the next line end, leaving the position after
    // every line-end character that follows it.
    qpdf_offset_t findAndSkipNextEOL() override
    {
        for (;;) {
            const Block *block = blockAt(position_);
            if (!block)
                return position_;
            const char *begin = block->bytes.data() + (position_ - block->start);
            const char *end = block->bytes.data() + block->bytes.size();
            const char *eol =
                std::find_if(begin, end, [](char c) { return c == '\r' || c == '\n'; });
            position_ += eol - begin;
            if (eol == end)
                continue;
            const qpdf_offset_t found = position_;
            for (++position_; const Block *next = blockAt(position_); ++position_) {
                const char c = next->bytes[size_t(position_ - next->start)];
                if (c != '\r' && c != '\n')
                    break;
            }
            return found;
        }
    }

    std::string const &getName() const override { return name_; }
    qpdf_offset_t tell() override { return position_; }

    void seek(qpdf_offset_t offset, int whence) override
    {
        qpdf_offset_t base = 0;
        if (whence == SEEK_CUR)
            base = position_;
        else if (whence == SEEK_END)
            base = fileSize();
        if (base + offset < 0)
            throw std::runtime_error(name_ + ": seek before the start of the file");
        position_ = base + offset;
    }

    void rewind() override { position_ = 0; }

    size_t read(char *buffer, size_t length) override
    {
        last_offset = position_;
        size_t done = 0;
        while (done < length) {
            const Block *block = blockAt(position_);
            if (!block)
                break;
            const size_t from = size_t(position_ - block->start);
            const size_t n = std::min(length - done, block->bytes.size() - from);
            std::memcpy(buffer + done, block->bytes.data() + from, n);
            done += n;
            position_ += qpdf_offset_t(n);
        }
        return done;
    }

    void unreadCh(char) override { seek(-1, SEEK_CUR); }

private:
    static constexpr size_t kBlockSize = size_t(1) << 16;
    static constexpr size_t kBlocks = 16;

    struct Block {
        qpdf_offset_t start = -1;
        std::vector<char> bytes;
    };

    // The cached block holding `offset`, read when it is not there; null at the end of the file.
    const Block *blockAt(qpdf_offset_t offset)
    {
        const qpdf_offset_t start = offset - offset % qpdf_offset_t(kBlockSize);
        Block &block = blocks_[size_t(start / qpdf_offset_t(kBlockSize)) % kBlocks];
        if (block.start != start) {
            block.bytes.resize(kBlockSize);
            ssize_t got;
            do
                got = ::pread(fd_, block.bytes.data(), kBlockSize, off_t(start));
            while (got < 0 && errno == EINTR);
            if (got < 0) {
                block.start = -1;
                QUtil::throw_system_error(name_ + ": read");
            }
            block.bytes.resize(size_t(got));
            block.start = start;
        }
        const size_t from = size_t(offset - start);
        return from < block.bytes.size() ? &block : nullptr;
    }

    qpdf_offset_t fileSize() const
    {
        const off_t end = ::lseek(fd_, 0, SEEK_END);
        if (end < 0)
            QUtil::throw_system_error(name_ + ": seek");
        return qpdf_offset_t(end);
    }

    std::string name_;
    int fd_;
    qpdf_offset_t position_ = 0;
    std::array<Block, kBlocks> blocks_;
};

// `path` opened for qpdf through cached blocks; raises qpdf's system error when it cannot be
// opened.
inline std::shared_ptr<InputSource> openBlockSource(const std::string &path)
{
    const int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0)
        QUtil::throw_system_error("open " + path);
    return std::make_shared<BlockInputSource>(path, fd);
}

} // namespace pw
