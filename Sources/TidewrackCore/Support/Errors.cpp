#include "Support/Errors.hpp"

#include "Platform/Process.hpp"

namespace tidewrack {

TidewrackError TidewrackError::io(const std::string& action, const std::string& path, int error) {
    TidewrackError result = io("can't " + action + " " + path + ": " + errorText(error));
    result.systemError_ = error;
    return result;
}

} // namespace tidewrack
