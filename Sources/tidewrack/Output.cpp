#include "Output.hpp"

#include "Platform/Process.hpp"
#include "Support/Text.hpp"

namespace tidewrack {

namespace {

constexpr std::size_t flushSize = 65536;

} // namespace

std::string Look::shown(std::string_view text) const {
    return terminal ? escapedControls(text) : repairedUtf8(text);
}

void Sink::write(std::string_view text) {
    if (text_ != nullptr) {
        *text_ += text;
        return;
    }
    waiting_ += text;
    if (waiting_.size() >= flushSize) flush();
}

void Sink::line(std::string_view text) {
    write(text);
    write("\n");
}

void Sink::flush() {
    if (fd_ >= 0 && error_ == 0 && !waiting_.empty())
        error_ = pager_ ? pager_->write(waiting_) : writeAll(fd_, waiting_);
    waiting_.clear();
}

void Sink::finish() {
    flush();
    if (pager_) pager_->finish();
}

} // namespace tidewrack
