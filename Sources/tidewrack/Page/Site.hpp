#pragma once
// What the page's server answers, apart from sockets: who may ask, and for what.

#include "Page/Acts.hpp"

#include <atomic>
#include <cstdint>
#include <map>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

namespace tidewrack::page {

struct Request {
    std::string method;
    std::string path; // decoded, without the query
    Values query;
    Values headers; // by lower-case name
    std::string body;
};

struct Answer {
    int status = 200;
    std::string type;
    std::string body;
    std::string command;  // the command line that prints the same; empty: none
    std::string warnings; // what that wrote on standard error
    bool isForUs = false; // it was asked for with the right token
};

// Every answer carries these: nothing may be loaded but what this server has, or be shown in another page.
[[nodiscard]] const std::map<std::string, std::string>& securityHeaders();

class Site {
  public:
    struct Settings {
        std::string root; // of the project
        std::string token;
        std::string version;
        bool readOnly = false;
    };

    Site(Settings settings, Runner runner) : settings_(std::move(settings)), desk_{settings_.root, std::move(runner)} {}
    Site(const Site&) = delete;
    Site& operator=(const Site&) = delete;

    // Known once the server listens, and before it answers.
    void setPort(int port) { port_ = port; }

    // May be called from several threads. Never throws for what was asked.
    [[nodiscard]] Answer answer(const Request& request);

    // Nothing more is changed from now on; what has begun goes on.
    void end() { hasEnded_ = true; }
    [[nodiscard]] bool isActing() const { return isActing_; }

  private:
    struct Plan {
        Act act;
        std::string identity; // of what was foreseen
    };

    [[nodiscard]] bool isForUs(const Request& request) const;
    [[nodiscard]] Answer ofInterface(const Request& request);
    [[nodiscard]] Answer read(const Request& request, std::string_view name) const;
    [[nodiscard]] Answer plan(const Request& request);
    [[nodiscard]] Answer carryOut(const Request& request);

    const Settings settings_;
    const Desk desk_;
    std::atomic<int> port_ = 0;
    std::atomic<bool> hasEnded_ = false;
    std::atomic<bool> isActing_ = false;
    std::mutex mutex_; // plans are made and carried out one after the other
    std::map<std::uint64_t, Plan> plans_;
    std::uint64_t newest_ = 0;
};

} // namespace tidewrack::page
