#include "Store/KeepFailure.hpp"

#include "Platform/OwnError.hpp"
#include "Platform/Process.hpp"

#include <charconv>
#include <system_error>

namespace tidewrack {

namespace {

constexpr std::string_view changingBlob = "errchanging";
constexpr std::string_view lateBlob = "errlate";
constexpr std::string_view noRoomBlob = "errroom";

} // namespace

std::string KeepFailure::blob() const {
    switch (why) {
    case Why::none: break;
    case Why::system: return "err" + std::to_string(error);
    case Why::changing: return std::string(changingBlob);
    case Why::late: return std::string(lateBlob);
    case Why::noRoom: return std::string(noRoomBlob);
    }
    return {};
}

KeepFailure KeepFailure::fromBlob(std::string_view blob) {
    if (!blob.starts_with("err")) return {};
    if (blob == changingBlob) return {Why::changing};
    if (blob == lateBlob) return {Why::late};
    if (blob == noRoomBlob) return {Why::noRoom};
    KeepFailure failure{Why::system};
    const auto digits = blob.substr(3);
    const auto [end, error] = std::from_chars(digits.data(), digits.data() + digits.size(), failure.error);
    if (error != std::errc() || end != digits.data() + digits.size()) failure.error = 0;
    return failure;
}

std::string KeepFailure::text() const {
    switch (why) {
    case Why::none: break;
    case Why::system: return errorText(error);
    case Why::changing: return errorText(keptChanging);
    case Why::late: return errorText(pastDeadline);
    case Why::noRoom: return "the disk is almost full";
    }
    return {};
}

} // namespace tidewrack
