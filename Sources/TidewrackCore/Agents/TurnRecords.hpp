#pragma once
// What a project's newest records tell of the turn that an event belongs to. A record that can't be read ends the
// reading: what it would have told is not known.

#include "Store/Records.hpp"
#include "Support/Dates.hpp"

#include <optional>

namespace tidewrack {

class HookContext;

// The snapshot from which the turn's edits can be taken back; none when in doubt.
[[nodiscard]] std::optional<SnapshotMeta> recordOfTurn(const HookContext& context, const Project& project);

// When the session's newest prompt was taken, for agents whose turns have no names.
[[nodiscard]] std::optional<Date> promptTime(const HookContext& context, const Project& project);

// Whether the session's newest record there ends no turn.
[[nodiscard]] bool hasOpenTurn(const HookContext& context, const Project& project);

// Whether the turn that ends has begun or worked in the project. An earlier turn of the session that was cut off,
// before `prompted`, is none of this one's.
[[nodiscard]] bool isInTurn(const HookContext& context, const Project& project, const std::optional<Date>& prompted);

// The turn that ends, as its records there tell.
[[nodiscard]] TurnEnd endOfTurn(const HookContext& context, const Project& project);

} // namespace tidewrack
