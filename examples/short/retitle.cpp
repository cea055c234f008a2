// SPDX-License-Identifier: MIT
// retitle FILE NUMBER TITLE: gives a track that an AIFF file keeps another title; divides the file if it keeps none.
#include <QMXCoreAudio/qmx.h>
#include <cstdlib>
#include <iostream>

namespace
{
qmx::Result<void> retitle(const std::string& path, std::size_t number, const std::string& title)
{
    const auto stored = qmx::readTracks(path);
    if (!stored)
        return stored.error(); // unreadable tracks are not replaced
    auto tracks = *stored ? qmx::Result((*stored)->tracks) : qmx::divide(path);
    if (!tracks)
        return tracks.error();
    if (number < 1 || number > tracks->size())
        return qmx::Error(paramErr, path + ": no such track", path);
    (*tracks)[number - 1].title = title;
    return qmx::storeTracks(path, *tracks);
}
} // namespace

int main(int argumentCount, char** arguments)
{
    if (argumentCount != 4)
        return 2;
    const auto done = retitle(arguments[1], std::strtoul(arguments[2], nullptr, 10), arguments[3]);
    return done ? 0 : (std::cerr << done.error().text() << '\n', 1);
}
