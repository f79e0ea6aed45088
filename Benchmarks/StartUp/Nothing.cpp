// The least that a hook can take: reads its input and ends. Linked statically.

#include <unistd.h>

int main() {
    char buffer[4096];
    while (::read(STDIN_FILENO, buffer, sizeof buffer) > 0) {
    }
    return 0;
}
