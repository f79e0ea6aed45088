#pragma once
// Guards what Tidewrack itself needs: its store, and the agents' configuration that calls it.

#include "Shell/Decision.hpp"
#include "Shell/Program.hpp"

#include <array>
#include <functional>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace tidewrack::shell {

// How much of the item at a target a command touches.
enum class Extent {
    rights,  // itself, but its owner may still read what it holds
    item,    // itself
    kept,    // itself, but what it holds stays: it is added to, or has other rights afterwards
    moved,   // with all it holds, to another place
    removed, // with all it holds
};

// Whether a command takes a link named as its target, or the folder that the link leads to.
enum class Links { itself, followed };

class OwnPaths {
  public:
    using Source = std::function<std::vector<OwnPath>()>;

    // `source` must outlive this. It is asked when there is something to look at; empty: there are no paths.
    explicit OwnPaths(const Source& source) : source_(source) {}

    // Looks at a target of a command, also under the name that the disk gives it.
    void look(const std::string& target, Extent extent, Links links);

    // Looks at what a command takes of the files in a folder: those of which `takes` is true.
    void lookBelow(const std::string& folder, const std::function<bool(std::string_view)>& takes);

    // Looks at the words of a command of Tidewrack's own: some remove history or hooks.
    void lookAtCommand(std::span<const Word> arguments);

    // The question because of the first thing that was found; none when nothing was.
    [[nodiscard]] const std::optional<std::string>& question() const { return question_; }

  private:
    [[nodiscard]] bool lookAtText(const std::string& target, std::string_view shown, Extent extent);

    const Source& source_;
    std::optional<std::vector<OwnPath>> paths_;
    std::optional<std::string> question_;
    int pathsMadeReal_ = 0;
};

// Agents whose own commands remove the plugin that calls Tidewrack.
constexpr std::array<std::string_view, 3> agentsWithPlugins = {"claude", "codex", "gemini"};
// Whether it is such a command: claude plugin uninstall tidewrack@tidewrack, gemini extensions disable tidewrack.
[[nodiscard]] bool removesPlugin(std::span<const Word> words);

} // namespace tidewrack::shell
