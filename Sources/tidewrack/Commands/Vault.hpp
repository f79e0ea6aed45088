#pragma once

namespace tidewrack {

class Invocation;

namespace commands {

// Gives back what a vault restore that was killed had moved aside, and removes what it left: in a project it would be
// taken for the user's. Nothing in a dry run.
void clearAfterVault(Invocation& call);

} // namespace commands

} // namespace tidewrack
