// SPDX-License-Identifier: MIT
#include "support/SoundServer.h"

#include <array>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <gtest/gtest.h>
#include <poll.h>
#include <spawn.h>
#include <sys/inotify.h>
#include <sys/wait.h>
#include <unistd.h>

namespace qmx::test
{
namespace
{

// A sink and a source that captures what the sink plays; no session manager, no message bus.
constexpr const char* configuration = R"(
context.properties = { core.daemon = true  core.name = pipewire-0  support.dbus = false  link.max-buffers = 16
    default.clock.rate = 48000  default.clock.allowed-rates = [ 44100 48000 96000 ]
    default.clock.quantum = 1024  default.clock.min-quantum = 32  default.clock.max-quantum = 8192 }
context.spa-libs = { audio.convert.* = audioconvert/libspa-audioconvert   support.* = support/libspa-support }
context.modules = [
    { name = libpipewire-module-rt args = { nice.level = -11 } flags = [ ifexists nofail ] }
    { name = libpipewire-module-protocol-native }   { name = libpipewire-module-metadata }
    { name = libpipewire-module-spa-node-factory }  { name = libpipewire-module-client-node }
    { name = libpipewire-module-client-device }     { name = libpipewire-module-access }
    { name = libpipewire-module-adapter }           { name = libpipewire-module-link-factory } ]
context.objects = [
    { factory = metadata args = { metadata.name = default } }
    { factory = spa-node-factory args = { factory.name = support.node.driver node.name = Dummy-Driver
        node.group = pipewire.dummy priority.driver = 20000 } }
    { factory = adapter args = { factory.name = support.null-audio-sink node.name = test-sink
        node.description = "Test Sink" media.class = Audio/Sink audio.position = [ FL FR ]
        monitor.channel-volumes = true adapter.auto-port-config = { mode = dsp monitor = true position = preserve } } }
    { factory = adapter args = { factory.name = support.null-audio-sink node.name = test-source
        node.description = "Test Source" media.class = Audio/Source/Virtual audio.position = [ FL FR ]
        monitor.channel-volumes = true adapter.auto-port-config = { mode = dsp monitor = true position = preserve } } }
    { factory = link-factory args = { link.output.node = test-sink link.output.port = monitor_FL
        link.input.node = test-source link.input.port = input_FL link.passive = true object.linger = true } }
    { factory = link-factory args = { link.output.node = test-sink link.output.port = monitor_FR
        link.input.node = test-source link.input.port = input_FR link.passive = true object.linger = true } } ]
)";

constexpr const char* socketName = "pipewire-0";
constexpr int patience = 10000; // milliseconds

} // namespace

SoundServer::SoundServer()
{
    std::ofstream(folder_.path("server.conf")) << configuration;
    for (const char* const name : {"XDG_RUNTIME_DIR", "HOME", "XDG_CONFIG_HOME", "XDG_STATE_HOME"})
        setenv(name, folder_.path("").c_str(), 1);
    for (const char* const name : {"PIPEWIRE_RUNTIME_DIR", "PIPEWIRE_REMOTE", "DBUS_SESSION_BUS_ADDRESS"})
        unsetenv(name);
}

SoundServer::~SoundServer()
{
    kill();
}

void SoundServer::start()
{
    const int watch = inotify_init1(IN_CLOEXEC);
    ASSERT_GE(inotify_add_watch(watch, folder_.path("").c_str(), IN_CREATE), 0);
    std::string program = "pipewire", option = "-c", file = folder_.path("server.conf");
    char* const arguments[] = {program.data(), option.data(), file.data(), nullptr};
    ASSERT_EQ(posix_spawnp(&process_, "pipewire", nullptr, nullptr, arguments, environ), 0) << "no pipewire program";
    while (access(folder_.path(socketName).c_str(), F_OK) != 0) {
        pollfd poll{.fd = watch, .events = POLLIN, .revents = 0};
        ASSERT_EQ(::poll(&poll, 1, patience), 1) << "the server does not come up";
        std::array<char, 4096> events{};
        ASSERT_GT(read(watch, events.data(), events.size()), 0);
    }
    close(watch);
}

void SoundServer::kill()
{
    if (process_ == 0)
        return;
    ::kill(process_, SIGKILL);
    waitpid(process_, nullptr, 0);
    process_ = 0;
    unlink(folder_.path(socketName).c_str());
}

std::string SoundServer::run(const std::string& command) const
{
    std::string output;
    FILE* const pipe = popen(command.c_str(), "r");
    std::array<char, 4096> block{};
    while (const std::size_t count = std::fread(block.data(), 1, block.size(), pipe))
        output.append(block.data(), count);
    EXPECT_EQ(pclose(pipe), 0) << command << "\n" << output;
    return output;
}

void SoundServer::plugIn(const std::string& name) const
{
    run("pw-cli create-node adapter '{ factory.name=support.null-audio-sink node.name=" + name +
        " media.class=Audio/Sink object.linger=true audio.position=[FL FR]"
        " adapter.auto-port-config={ mode=dsp monitor=true position=preserve } }'");
}

void SoundServer::unplug(const std::string& name) const
{
    run("pw-cli destroy " + name);
}

} // namespace qmx::test
