#include "ScratchFile.h"

#include <unistd.h>

#include <cerrno>
#include <string>
#include <system_error>

#include "Registry.h"
#include "foundation/Descriptor.h"

namespace quillet::tool {

namespace fs = std::filesystem;

ScratchFile::ScratchFile() : fd_(OpenUnnamed(fs::temp_directory_path().c_str())) {
    if (fd_ < 0) {
        throw Failure(fs::temp_directory_path().string() + ": cannot create a scratch file: " +
                      std::generic_category().message(errno));
    }
    path_ = "/proc/self/fd/" + std::to_string(fd_);
}

ScratchFile::~ScratchFile() { ::close(fd_); }

}  // namespace quillet::tool
