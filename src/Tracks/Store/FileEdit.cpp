// SPDX-License-Identifier: MIT
#include "Tracks/Store/FileEdit.h"

#include <algorithm>
#include <cerrno>

namespace qmx
{

SystemError FileEdit::write(SInt64 offset, std::span<const UInt8> bytes)
{
    const auto standing =
        static_cast<std::size_t>(std::clamp<SInt64>(oldEnd_ - offset, 0, static_cast<SInt64>(bytes.size())));
    file_.seekToFileOffset(offset);
    Saved saved{offset, file_.readDataOfLength(standing)};
    if (saved.bytes.size() != standing)
        return EIO; // what cannot be restored is not overwritten
    saved_.push_back(std::move(saved));
    file_.seekToFileOffset(offset);
    return file_.writeData(bytes);
}

void FileEdit::undo()
{
    bool isRestored = true;
    for (; !saved_.empty(); saved_.pop_back()) {
        file_.seekToFileOffset(saved_.back().offset);
        if (!saved_.back().bytes.empty() && file_.writeData(saved_.back().bytes) != 0)
            isRestored = false;
    }
    if (isRestored && file_.seekToEndOfFile() > oldEnd_)
        (void)file_.truncateFileAtOffset(oldEnd_); // what remains is cut off before the next store
}

} // namespace qmx
