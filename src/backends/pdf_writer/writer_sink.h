#pragma once

#include "module_abi.h"
#include "module_failure.h"
#include "pdf_sink.h"
#include "pdf_writer.h"

#include <vector>

namespace pw::i2p {

// A PdfWriter offered to a module as a pw_pdf_sink. The pages the module adds are appended to
// `pages`. A failure of the writer is kept until the module has returned: rethrow() raises it,
// or the module's own failure when the writer did not fail.
class WriterSink {
public:
    WriterSink(PdfWriter &out, std::vector<int> &pages);
    WriterSink(const WriterSink &) = delete;
    WriterSink &operator=(const WriterSink &) = delete;

    const pw_pdf_sink *sink() const { return &sink_; }
    [[noreturn]] void rethrow(const pw_module_error &error) const { fence_.rethrow(error); }

private:
    template <typename Call> static int32_t run(void *context, Call &&call);

    PdfWriter &out_;
    std::vector<int> &pages_;
    CallbackFence fence_;
    pw_pdf_sink sink_;
};

} // namespace pw::i2p
