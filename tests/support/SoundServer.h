// SPDX-License-Identifier: MIT
// A sound server of the tests' own, in a folder of its own: it never meets the user's.
#pragma once

#include "support/TemporaryFolder.h"

#include <string>
#include <sys/types.h>
#include <vector>

namespace qmx::test
{

/// A test fails when the server does not come up; its programs end with the object, and with the test when that
/// crashes.
class SoundServer
{
public:
    SoundServer();
    ~SoundServer();
    SoundServer(const SoundServer&) = delete;
    SoundServer& operator=(const SoundServer&) = delete;

    /// With a session manager or with the bare server; that one links what the sink plays to the source by itself.
    void start(bool isManaged = false);
    void linkSinkToSource() const;
    /// Without a warning to anybody.
    void kill();

    /// Runs one of the server's command-line tools; what it writes, with one space between words.
    std::string run(const std::string& command) const;
    /// Plugs a stereo node in, from outside; it stays until it is unplugged by its name.
    void plugIn(const std::string& name, const std::string& properties = "media.class=Audio/Sink") const;
    void unplug(const std::string& name) const;
    /// The number that a node has on the server.
    std::string numberOf(const std::string& name) const;

private:
    void spawn(std::vector<std::string> words);

    TemporaryFolder folder_;
    bool isManaged_ = false;
    std::vector<pid_t> processes_;
};

} // namespace qmx::test
