#pragma once

// The outcome of a call into the operating system: a value, or what failed and why.
//
// Every call the platform layer makes into Linux answers one of these, and callers must look at
// it ([[nodiscard]]). Public operations turn a failure into the library's false or nil plus an
// Error; log lines use text(): "bind: Address already in use".

#include "platform/Export.h"

#include <cerrno>
#include <string>
#include <utility>
#include <variant>

namespace zon {

struct ZON_EXPORT SystemError {
    int code = 0;       // the errno value
    std::string call;   // the call that failed ("bind"), or the thing a check refused
    std::string reason; // when set, said instead of the errno's own text

    // The errno the calling thread's last failed call left.
    static SystemError last(std::string call) { return {errno, std::move(call), {}}; }
    std::string text() const;
};

template <typename T = void>
class [[nodiscard]] SystemResult {
public:
    SystemResult(T value) : state_(std::in_place_index<0>, std::move(value)) {}
    SystemResult(SystemError error) : state_(std::in_place_index<1>, std::move(error)) {}

    bool ok() const { return state_.index() == 0; }
    explicit operator bool() const { return ok(); }
    T& value() & { return std::get<0>(state_); }
    const T& value() const& { return std::get<0>(state_); }
    T&& value() && { return std::get<0>(std::move(state_)); }
    const SystemError& error() const { return std::get<1>(state_); }
    int code() const { return ok() ? 0 : error().code; }

private:
    std::variant<T, SystemError> state_;
};

template <>
class [[nodiscard]] SystemResult<void> {
public:
    SystemResult() = default;
    SystemResult(SystemError error) : error_(std::move(error)), failed_(true) {}

    bool ok() const { return !failed_; }
    explicit operator bool() const { return ok(); }
    const SystemError& error() const { return error_; }
    int code() const { return failed_ ? error_.code : 0; }

private:
    SystemError error_;
    bool failed_ = false;
};

} // namespace zon
