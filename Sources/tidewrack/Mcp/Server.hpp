#pragma once
// `tidewrack mcp`: the history as tools for an agent, by the Model Context Protocol over standard input and output.
//
// JSON-RPC 2.0, one message a line. Clients of the revisions up to 2025-11-25 begin with `initialize`; since 2026-07-28
// every request names its revision and `server/discover` tells what there is.

#include "Mcp/Tools.hpp"
#include "Surroundings.hpp"

#include <nlohmann/json.hpp>

#include <deque>
#include <optional>
#include <string>

namespace tidewrack::mcp {

class Server {
  public:
    // `around`: where messages are read and answered, and the folder whose project is served.
    Server(Surroundings& around, bool mayChange) : around_(around), mayChange_(mayChange) {}

    // Answers until the input ends, or nobody reads the answers any more. A line that is no message gets an error and
    // ends nothing.
    void serve();

  private:
    // A message, or nothing for a line that holds none.
    using Message = std::optional<nlohmann::json>;

    bool read(bool wait); // false at the end of the input
    void take(std::string_view bytes);
    void add(Message message);
    [[nodiscard]] bool isCancelled();
    void handle(const Message& message);
    void reply(const nlohmann::json& answer);

    [[nodiscard]] nlohmann::json resultOf(const nlohmann::json& request) const;
    [[nodiscard]] nlohmann::json listed() const;
    [[nodiscard]] nlohmann::json called(const nlohmann::json& params) const;

    Surroundings& around_;
    bool mayChange_;
    std::string line_; // what was read of the next line
    bool lineIsTooLong_ = false;
    bool ended_ = false;
    std::deque<Message> waiting_;
    nlohmann::json current_; // the request that is worked on
    bool currentIsCancelled_ = false;
};

} // namespace tidewrack::mcp
