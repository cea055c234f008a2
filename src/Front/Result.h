// SPDX-License-Identifier: MIT
// Results as values: what an operation of the front gives, or why it failed. The front throws no exceptions.
#pragma once

#include <QMXCoreAudio/CoreAudioTypes/MacTypes.h>

#include <optional>
#include <string>
#include <utility>
#include <variant>

namespace qmx
{

/// The status of what the caller ended by a stop token or by a callback's value.
inline constexpr OSStatus cancelledStatus = -128;

/// Why an operation failed, for programs and for people. A plain value; any thread.
class Error
{
public:
    /// `text` is a whole sentence without a period, in UTF-8; it names the file or device.
    Error(OSStatus status, std::string text, std::string path = {})
        : status_(status), text_(std::move(text)), path_(std::move(path))
    {
    }

    OSStatus status() const { return status_; }       ///< never noErr
    const std::string& text() const { return text_; } ///< "side-a.flac: No such file or directory"
    const std::string& path() const { return path_; } ///< of the file that it is about; empty if about none
    bool isCancelled() const { return status_ == cancelledStatus; }

private:
    OSStatus status_;
    std::string text_, path_;
};

/// A value, or the error that stands in its place. `*` and `->` need a value, `error()` needs an error.
template <class Value> class [[nodiscard]] Result
{
public:
    Result(Value value) : content_(std::in_place_index<0>, std::move(value)) {}
    Result(Error error) : content_(std::in_place_index<1>, std::move(error)) {}

    explicit operator bool() const { return content_.index() == 0; }
    Value& operator*() & { return *std::get_if<0>(&content_); }
    const Value& operator*() const& { return *std::get_if<0>(&content_); }
    Value&& operator*() && { return std::move(*std::get_if<0>(&content_)); }
    Value* operator->() { return std::get_if<0>(&content_); }
    const Value* operator->() const { return std::get_if<0>(&content_); }
    const Error& error() const { return *std::get_if<1>(&content_); }

private:
    std::variant<Value, Error> content_;
};

/// Nothing, or an error.
template <> class [[nodiscard]] Result<void>
{
public:
    Result() = default;
    Result(Error error) : error_(std::move(error)) {}

    explicit operator bool() const { return !error_; }
    const Error& error() const { return *error_; }

private:
    std::optional<Error> error_;
};

} // namespace qmx
