#include "Platform/Terminal.hpp"

#include "Platform/Descriptor.hpp"
#include "Platform/Process.hpp"

#include <fcntl.h>
#include <termios.h>
#include <unistd.h>

#include <cerrno>

namespace tidewrack {

namespace {

// A line editor, as shells have one, takes each key as it comes and shows nothing by itself.
class LineByLine {
  public:
    explicit LineByLine(int terminal) : terminal_(terminal), changed_(::tcgetattr(terminal, &before_) == 0) {
        if (!changed_) return;
        termios plain = before_;
        plain.c_lflag |= ICANON | ECHO | ECHOE | ISIG;
        plain.c_iflag |= ICRNL;
        plain.c_oflag |= OPOST | ONLCR;
        (void)::tcsetattr(terminal_, TCSANOW, &plain);
    }
    LineByLine(const LineByLine&) = delete;
    LineByLine& operator=(const LineByLine&) = delete;
    ~LineByLine() {
        if (changed_) (void)::tcsetattr(terminal_, TCSANOW, &before_);
    }

  private:
    int terminal_;
    termios before_{};
    bool changed_;
};

} // namespace

std::optional<std::string> askOnTerminal(std::string_view question) {
    const Descriptor terminal(::open("/dev/tty", O_RDWR | O_NOCTTY | O_CLOEXEC));
    if (!terminal) return std::nullopt;
    const LineByLine cooked(terminal.get());
    if (writeAll(terminal.get(), question) != 0) return std::nullopt;
    std::string answer;
    for (;;) {
        char letter = 0;
        const ssize_t count = ::read(terminal.get(), &letter, 1);
        if (count < 0 && errno == EINTR) continue;
        if (count <= 0) return std::nullopt;
        if (letter == '\n') return answer;
        answer += letter;
    }
}

} // namespace tidewrack
