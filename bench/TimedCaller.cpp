// WebServiceCaller with a stopwatch: notes the moment at which each stage ends in the file that
// STOWLINE_BENCH_STAGES names, in microseconds of the steady clock.
#include "stowline/platform/processes/HelperProgram.h"
#include "stowline/tool/CallWorker.h"

#include <chrono>
#include <cstdio>
#include <cstdlib>

namespace {

struct Note {
    std::string_view stage;
    double moment;
};

double now()
{
    using Microseconds = std::chrono::duration<double, std::micro>;
    return Microseconds(std::chrono::steady_clock::now().time_since_epoch()).count();
}

} // namespace

int main(int count, char** words)
{
    using namespace stowline;
    std::vector<Note> notes{{"child started, up to main", now()}};
    tool::CallWorkerOptions options;
    options.writeOutput = platform::writeOnceToStandardOutput;
    options.onStage = [&notes](std::string_view stage) { notes.push_back({stage, now()}); };
    const auto status = tool::runCallWorker({words, words + count}, options);
    if (const char* file = std::getenv("STOWLINE_BENCH_STAGES")) {
        if (std::FILE* out = std::fopen(file, "w")) {
            for (const Note& note : notes)
                std::fprintf(out, "%.3f %.*s\n", note.moment, static_cast<int>(note.stage.size()),
                             note.stage.data());
            std::fclose(out);
        }
    }
    platform::closeStandardOutput();
    platform::awaitReleaseBytes();
    return static_cast<int>(status);
}
