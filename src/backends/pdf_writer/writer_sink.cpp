#include "writer_sink.h"

#include <string_view>

namespace pw::i2p {

template <typename Call> int32_t WriterSink::run(void *context, Call &&call)
{
    auto *self = static_cast<WriterSink *>(context);
    return self->fence_.run([&] { call(*self); });
}

WriterSink::WriterSink(PdfWriter &out, std::vector<int> &pages) : out_(out), pages_(pages)
{
    sink_.context = this;
    sink_.reserve = [](void *context, int32_t *number) {
        return run(context, [number](WriterSink &self) { *number = self.out_.reserve(); });
    };
    sink_.begin_object = [](void *context, int32_t number) {
        return run(context, [number](WriterSink &self) { self.out_.beginObject(number); });
    };
    sink_.write = [](void *context, const uint8_t *data, size_t size) {
        return run(context, [=](WriterSink &self) { self.out_.write(data, size); });
    };
    sink_.end_object = [](void *context) {
        return run(context, [](WriterSink &self) { self.out_.endObject(); });
    };
    sink_.add_page = [](void *context, int32_t number) {
        return run(context, [number](WriterSink &self) { self.pages_.push_back(number); });
    };
}

} // namespace pw::i2p
