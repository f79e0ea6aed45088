#pragma once
// What a mirroring tells.

#include "Engine/Mirror.hpp"
#include "Output.hpp"

#include <nlohmann/json_fwd.hpp>

#include <string>

namespace tidewrack {

[[nodiscard]] std::string mirrorText(const MirrorResult& result, bool dryRun, const Look& look);
[[nodiscard]] nlohmann::json mirrorJson(const MirrorResult& result, bool dryRun);

} // namespace tidewrack
