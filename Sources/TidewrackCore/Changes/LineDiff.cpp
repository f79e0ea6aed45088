#include "Changes/LineDiff.hpp"

#include "Changes/EditScript.hpp"
#include "Platform/Descriptor.hpp"
#include "Platform/Libraries.hpp"
#include "Support/Text.hpp"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <utility>

namespace tidewrack {

namespace {

constexpr std::size_t binaryProbe = 8000; // bytes
constexpr std::size_t digestLength = 16;  // hexadecimal digits

using Kind = LineDiff::Line::Kind;
using Lines = std::span<const std::string_view>;

// Builds hunks from changes given in order.
class HunkWriter {
  public:
    HunkWriter(Lines oldLines, Lines newLines, std::size_t context)
        : oldLines_(oldLines), newLines_(newLines), context_(context) {}

    void add(const LineChange& change) {
        const std::size_t gap = change.oldBegin - previous_.oldEnd;
        if (hunks_.empty() || (gap > context_ && gap - context_ > context_)) {
            if (!hunks_.empty()) addContext(previous_, context_);
            hunks_.emplace_back();
            const std::size_t before = std::min(gap, context_);
            addContext({0, change.oldBegin - before, 0, change.newBegin - before}, before);
        } else {
            addContext(previous_, gap);
        }
        for (std::size_t at = change.oldBegin; at < change.oldEnd; ++at)
            add({Kind::removed, std::string(oldLines_[at]), at + 1, std::nullopt});
        for (std::size_t at = change.newBegin; at < change.newEnd; ++at)
            add({Kind::added, std::string(newLines_[at]), std::nullopt, at + 1});
        previous_ = change;
    }

    std::vector<LineDiff::Hunk> finish() {
        if (!hunks_.empty()) addContext(previous_, std::min(context_, oldLines_.size() - previous_.oldEnd));
        return std::move(hunks_);
    }

  private:
    void add(LineDiff::Line line) { hunks_.back().lines.push_back(std::move(line)); }

    void addContext(const LineChange& after, std::size_t count) {
        for (std::size_t step = 0; step < count; ++step) {
            const std::size_t oldAt = after.oldEnd + step;
            add({Kind::context, std::string(oldLines_[oldAt]), oldAt + 1, after.newEnd + step + 1});
        }
    }

    Lines oldLines_;
    Lines newLines_;
    std::size_t context_;
    LineChange previous_;
    std::vector<LineDiff::Hunk> hunks_;
};

// Returns an errno, 0 for success. Reads on to the end or until `bytes` is full.
int readInto(std::string& bytes, int descriptor) {
    std::size_t filled = 0;
    while (filled < bytes.size()) {
        const ssize_t count = ::read(descriptor, bytes.data() + filled, bytes.size() - filled);
        if (count < 0 && errno == EINTR) continue;
        if (count < 0) return errno;
        if (count == 0) break;
        filled += static_cast<std::size_t>(count);
    }
    bytes.resize(filled);
    return 0;
}

LineDiff::Content readDescriptor(int descriptor) {
    LineDiff::Content content;
    struct stat status = {};
    if (::fstat(descriptor, &status) != 0) {
        content.error = errno;
    } else if (!S_ISREG(status.st_mode)) {
        content.error = EINVAL;
    } else if (static_cast<std::uintmax_t>(status.st_size) > LineDiff::sizeLimit) {
        content.tooLarge = true;
    } else {
        // One byte more than allowed shows a file that has grown since.
        content.bytes.resize(LineDiff::sizeLimit + 1);
        content.error = readInto(content.bytes, descriptor);
        content.tooLarge = content.error == 0 && content.bytes.size() > LineDiff::sizeLimit;
        if (content.error != 0 || content.tooLarge) content.bytes.clear();
    }
    return content;
}

LineDiff::Content readOptional(const std::optional<std::string>& path) {
    return path ? LineDiff::read(*path) : LineDiff::Content{};
}

} // namespace

LineDiff::Content LineDiff::read(const std::string& path) {
    const Descriptor descriptor(::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
    if (descriptor) return readDescriptor(descriptor.get());
    Content content;
    content.error = errno;
    return content;
}

LineDiff::Result LineDiff::compare(const std::optional<std::string>& oldPath,
                                   const std::optional<std::string>& newPath) {
    const Content oldContent = readOptional(oldPath);
    const Content newContent = readOptional(newPath);
    if (oldContent.tooLarge || newContent.tooLarge) return {Result::Kind::tooLarge, {}, 0, 0};
    const auto oldText = text(oldContent.bytes);
    const auto newText = text(newContent.bytes);
    if (!oldText || !newText) return {Result::Kind::binary, {}, 0, 0};
    return diff(*oldText, *newText, usualContext);
}

LineDiff::Result LineDiff::diff(std::string_view oldText, std::string_view newText, std::size_t context) {
    if (oldText == newText) return {};
    return diffLines(lines(oldText), lines(newText), context);
}

LineDiff::Result LineDiff::diffLines(Lines oldLines, Lines newLines, std::size_t context) {
    LineNumbering numbering(oldLines.size() + newLines.size());
    const std::vector<LineId> oldIds = numbering.idsOf(oldLines);
    const std::vector<LineId> newIds = numbering.idsOf(newLines);
    const EditScript script = shortestEditScript(oldIds, newIds);
    HunkWriter writer(oldLines, newLines, context);
    for (const LineChange& change : changesOf(script)) writer.add(change);
    return {Result::Kind::text, writer.finish(), script.inserted.size(), script.removed.size()};
}

std::vector<LineDiff::Hunk> LineDiff::patchHunks(std::string_view oldText, std::string_view newText) {
    return diffLines(wholeLines(oldText), wholeLines(newText), usualContext).hunks;
}

std::string LineDiff::digest(const Hunk& hunk) {
    std::string text;
    for (const Line& line : hunk.lines) {
        if (text.empty()) text = std::to_string(line.oldNumber.value_or(0)) + "\n";
        text += line.kind == Kind::added ? '+' : line.kind == Kind::removed ? '-' : ' ';
        text += line.text;
    }
    return hexText(sha256(text)).substr(0, digestLength);
}

const LineDiff::ChosenHunks::value_type* LineDiff::firstOther(const std::vector<Hunk>& hunks,
                                                              const ChosenHunks& chosen) {
    const auto isOther = [&](const ChosenHunks::value_type& each) {
        const auto& [number, name] = each;
        return number < 1 || number > hunks.size() || (!name.empty() && name != digest(hunks[number - 1]));
    };
    const auto found = std::find_if(chosen.begin(), chosen.end(), isOther);
    return found == chosen.end() ? nullptr : &*found;
}

std::optional<std::string> LineDiff::withoutHunks(std::string_view oldText, std::string_view newText,
                                                  const ChosenHunks& chosen) {
    const std::vector<std::string_view> newLines = wholeLines(newText);
    const std::vector<Hunk> hunks = patchHunks(oldText, newText);
    if (firstOther(hunks, chosen) != nullptr) return std::nullopt;
    std::string text;
    std::size_t done = 0; // of the new lines
    const auto copyUpTo = [&](std::size_t end) {
        for (; done < end; ++done) text += newLines[done];
    };
    for (const auto& [number, name] : chosen) {
        for (const Line& line : hunks[number - 1].lines) {
            switch (line.kind) {
            case Line::Kind::context: copyUpTo(*line.newNumber); break;
            case Line::Kind::removed: text += line.text; break;
            case Line::Kind::added: done = *line.newNumber; break;
            }
        }
    }
    copyUpTo(newLines.size());
    return text;
}

std::vector<std::string_view> LineDiff::lines(std::string_view text) {
    std::vector<std::string_view> result;
    while (!text.empty()) {
        const std::size_t end = std::min(text.find('\n'), text.size());
        result.push_back(text.substr(0, end));
        text.remove_prefix(std::min(end + 1, text.size()));
    }
    return result;
}

std::vector<std::string_view> LineDiff::wholeLines(std::string_view text) {
    std::vector<std::string_view> result = lines(text);
    for (std::string_view& line : result) {
        const auto end = static_cast<std::size_t>(line.data() - text.data()) + line.size();
        if (end < text.size()) line = {line.data(), line.size() + 1};
    }
    return result;
}

std::optional<std::string_view> LineDiff::text(std::string_view bytes) {
    if (bytes.substr(0, binaryProbe).find('\0') != std::string_view::npos) return std::nullopt;
    if (!isUtf8(bytes)) return std::nullopt;
    return bytes;
}

} // namespace tidewrack
