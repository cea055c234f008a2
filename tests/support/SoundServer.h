// SPDX-License-Identifier: MIT
// A sound server of the tests' own, in a folder of its own: it never meets the user's.
#pragma once

#include "support/TemporaryFolder.h"

#include <string>
#include <sys/types.h>

namespace qmx::test
{

/// A test fails when the server does not come up; it ends with the object.
class SoundServer
{
public:
    SoundServer();
    ~SoundServer();
    SoundServer(const SoundServer&) = delete;
    SoundServer& operator=(const SoundServer&) = delete;

    void start();
    /// Without a warning to anybody.
    void kill();

    /// Runs one of the server's command-line tools; what it writes.
    std::string run(const std::string& command) const;
    /// Plugs a stereo sink in, from outside; it stays until it is unplugged by its name.
    void plugIn(const std::string& name) const;
    void unplug(const std::string& name) const;

private:
    TemporaryFolder folder_;
    pid_t process_ = 0;
};

} // namespace qmx::test
