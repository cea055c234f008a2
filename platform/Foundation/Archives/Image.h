// SPDX-License-Identifier: MIT
#pragma once

#include <QMXCoreAudio/Foundation/Export.h>
#include <QMXCoreAudio/Foundation/Object.h>

#include <cstdint>
#include <memory>
#include <vector>

namespace qmx
{

/// A picture in its original encoding (JPEG, PNG, ...), whose bytes are kept unchanged and never decoded. Immutable.
class QMX_EXPORT Image : public Object
{
public:
    explicit Image(std::vector<std::uint8_t> data);

    static std::shared_ptr<Image> initWithData(std::vector<std::uint8_t> data);

    /// The encoded bytes.
    const std::vector<std::uint8_t>& data() const { return data_; }

private:
    std::vector<std::uint8_t> data_;
};

} // namespace qmx
