// SPDX-License-Identifier: MIT
#include "Foundation/Archives/Image.h"

#include <utility>

namespace qmx
{

Image::Image(std::vector<std::uint8_t> data) : data_(std::move(data)) {}

std::shared_ptr<Image> Image::initWithData(std::vector<std::uint8_t> data)
{
    return std::make_shared<Image>(std::move(data));
}

} // namespace qmx
