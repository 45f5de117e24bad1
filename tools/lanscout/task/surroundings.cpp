#include "tools/lanscout/task/surroundings.h"

#include <fmt/core.h>
#include <sys/stat.h>

#include <cstring>
#include <filesystem>
#include <stdexcept>

#include "finder/machine/files.h"

namespace Lanscout {
namespace {

bool IsFifo(const std::string& path) {
    struct stat status {};
    return stat(path.c_str(), &status) == 0 && S_ISFIFO(status.st_mode);
}

void WriteFifo(const std::string& path, std::string_view text, const Wake& wake) {
    const Descriptor file = OpenPatiently(path, wake);
    if (const int error = PatientWriter(file.Fd(), wake).Write(text); error != 0) {
        throw std::runtime_error(fmt::format("cannot write {}: {}", path, std::strerror(error)));
    }
}

}  // namespace

Files SystemFiles(const Wake& wake) {
    return {&ReadWholeFile,
            [](const std::string& path) {
                std::error_code error;
                return std::filesystem::exists(path, error);
            },
            &CheckWritable,
            [wake](const std::string& path, std::string_view text) {
                if (IsFifo(path)) {
                    WriteFifo(path, text, wake);
                } else {
                    WriteWholeFile(path, text);
                }
            }};
}

Wake WakeOf(Signals& signals, Console& console) {
    return {signals.Fd(), [&signals, &console] {
                signals.Take();
                if (signals.TakeResumed()) {
                    console.Forget();
                }
                return signals.Interrupted();
            }};
}

}  // namespace Lanscout
