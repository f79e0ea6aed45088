#pragma once
// An answer that is never late, whatever the disk does.

#include "Agents/Replies.hpp"
#include "Platform/Deadline.hpp"

#include <functional>

namespace tidewrack {

// Has `work` done in a process of its own and returns its answer; or that of `late`, with the reason, when there is
// none by the deadline or the process died. The work then goes on by itself. A thread would not do: a process whose
// thread waits for a disk can't end, and those who wait for its end wait as long. `work` must not throw.
[[nodiscard]] HookOutput answerInTime(const Deadline& deadline, const std::function<HookOutput()>& work,
                                      const std::function<HookOutput(const char* why)>& late);

} // namespace tidewrack
