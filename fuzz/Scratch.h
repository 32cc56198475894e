#pragma once

#include <fcntl.h>
#include <unistd.h>

#include <cstdlib>
#include <string>

#include "Fuzz.h"
#include "UtlLog.h"

namespace fuzz {

/// The working folder of a target that needs files: one of its own in `TMPDIR`, else in memory where the
/// system has such. It goes with the process, unless that ends with a finding. Paths are relative to it, so
/// that no folder above has its mode changed. What the library reports about broken files is not shown.
class Scratch {
  public:
    static void enter() { static Scratch const theScratch; }

    static void put(char const* name, std::string const& content) {
        int const descriptor = ::open(name, O_CREAT | O_WRONLY | O_TRUNC | O_CLOEXEC, 0644);
        FUZZ_EXPECT(descriptor >= 0);
        FUZZ_EXPECT(::write(descriptor, content.data(), content.size()) ==
                    static_cast<ssize_t>(content.size()));
        ::close(descriptor);
    }

    static std::string contentOf(char const* name) {
        int const descriptor = ::open(name, O_RDONLY | O_CLOEXEC);
        FUZZ_EXPECT(descriptor >= 0);
        std::string content;
        char part[4096];
        for (ssize_t got = 0; (got = ::read(descriptor, part, sizeof(part))) > 0;) {
            content.append(part, static_cast<size_t>(got));
        }
        ::close(descriptor);
        return content;
    }

  private:
    static std::string parent() {
        char const* const wanted = std::getenv("TMPDIR");
        return wanted != nullptr ? wanted : ::access("/dev/shm", W_OK) == 0 ? "/dev/shm" : "/tmp";
    }

    Scratch() : mPath(parent() + "/utl-fuzz-XXXXXX") {
        FUZZ_EXPECT(::mkdtemp(mPath.data()) != nullptr && ::chdir(mPath.c_str()) == 0);
        setAllFilterLevel(utl::LOG_LEVEL_NONE);
    }
    ~Scratch() {
        ::unlink("file");
        ::unlink("other");
        ::rmdir(mPath.c_str());
    }

    std::string mPath;
};

}  // namespace fuzz
