// SPDX-License-Identifier: MIT
// A private sound server in its own folder, apart from the user's.
#pragma once

#include "support/TemporaryFolder.h"

#include <string>
#include <sys/types.h>
#include <vector>

namespace qmx::test
{

/// A test fails if the server does not start. Its programs end with the object, and with the test if that crashes.
class SoundServer
{
public:
    SoundServer();
    ~SoundServer();
    SoundServer(const SoundServer&) = delete;
    SoundServer& operator=(const SoundServer&) = delete;

    /// Starts the server, with or without a session manager; without one the server links the sink's monitor to the
    /// source by itself.
    void start(bool isManaged = false);
    void linkSinkToSource() const;
    /// Kills the server without a warning.
    void kill();

    /// Runs one of the server's command-line tools and returns its output, with one space between words.
    std::string run(const std::string& command) const;
    /// Plugs a stereo node in through another program; it stays until it is unplugged by its name.
    void plugIn(const std::string& name, const std::string& properties = "media.class=Audio/Sink") const;
    void unplug(const std::string& name) const;
    /// The number of a node on the server.
    std::string numberOf(const std::string& name) const;

private:
    void spawn(std::vector<std::string> words);

    TemporaryFolder folder_;
    bool isManaged_ = false;
    std::vector<pid_t> processes_;
};

} // namespace qmx::test
