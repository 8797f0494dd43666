// Replays one script: replay_session FILE. The trace goes to standard output, as from `corvane replay`.
#include <fstream>
#include <iostream>

#include "sessions/replayer.h"

int main(int argc, char** argv) {
    if (argc != 2) {
        std::cerr << "usage: replay_session FILE\n";
        return 2;
    }
    std::ifstream script(argv[1], std::ios::binary);
    return static_cast<int>(corvane::sessions::replay(script, std::cout, std::cerr));
}
