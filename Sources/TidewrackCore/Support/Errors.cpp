#include "Support/Errors.hpp"

#include "Platform/Process.hpp"

namespace tidewrack {

TidewrackError TidewrackError::io(const std::string& action, const std::string& path, int error) {
    return io("can't " + action + " " + path + ": " + errorText(error));
}

} // namespace tidewrack
