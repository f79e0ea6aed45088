#include "Support/Program.hpp"

#include "Platform/Process.hpp"

#include <csignal>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/wait.h>

#include <cerrno>

namespace tidewrack::testing {

namespace {

int openOutput(Program::Output output, const std::string& file) {
    if (output == Program::Output::full) return ::open("/dev/full", O_WRONLY);
    if (output == Program::Output::collected) return ::open(file.c_str(), O_WRONLY | O_CREAT, 0644);
    int ends[2];
    if (::pipe(ends) != 0) return -1;
    ::close(ends[0]);
    return ends[1];
}

} // namespace

Program::Program(const World& world, const std::vector<std::string>& words, Output output,
                 const std::optional<std::string>& input) {
    std::vector<std::string> texts = {world.program};
    texts.insert(texts.end(), words.begin(), words.end());
    std::vector<char*> arguments;
    for (std::string& text : texts) arguments.push_back(text.data());
    arguments.push_back(nullptr);
    std::vector<std::string> entries;
    for (const auto& [name, value] : world.environment) entries.push_back(name + "=" + value);
    std::vector<char*> environment;
    for (std::string& entry : entries) environment.push_back(entry.data());
    environment.push_back(nullptr);
    const int out = openOutput(output, texts_.at("out"));
    const int err = openOutput(Output::collected, texts_.at("err"));
    const int in = openInput(input);
    process_ = ::fork();
    if (process_ == 0) {
        endInput();
        ::dup2(in, STDIN_FILENO);
        ::dup2(out, STDOUT_FILENO);
        ::dup2(err, STDERR_FILENO);
        if (::chdir(world.current.c_str()) == 0) ::execve(world.program.c_str(), arguments.data(), environment.data());
        ::_exit(127);
    }
    ::close(in);
    ::close(out);
    ::close(err);
}

int Program::openInput(const std::optional<std::string>& input) {
    if (input) {
        texts_.write("in", *input);
        return ::open(texts_.at("in").c_str(), O_RDONLY);
    }
    int ends[2];
    EXPECT_EQ(::pipe(ends), 0);
    input_ = Descriptor(ends[1]);
    return ends[0];
}

Program::~Program() {
    signal(SIGKILL);
    reap(0);
}

void Program::write(const std::string& text) const {
    EXPECT_EQ(writeAll(input_.get(), text), 0);
}

bool Program::isRunning() {
    reap(WNOHANG);
    return !ended_;
}

void Program::signal(int number) {
    if (!ended_) ::kill(process_, number);
}

Outcome Program::wait() {
    reap(0);
    return {status_, texts_.has("out") ? texts_.read("out") : "", texts_.read("err")};
}

void Program::reap(int options) {
    if (ended_) return;
    int status = 0;
    pid_t reaped = -1;
    do reaped = ::waitpid(process_, &status, options);
    while (reaped < 0 && errno == EINTR);
    if (reaped == 0) return;
    ended_ = true;
    status_ = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

} // namespace tidewrack::testing
