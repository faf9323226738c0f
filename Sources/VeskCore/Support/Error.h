// The base of every failure that Vesk throws.
#pragma once

#include <exception>
#include <string>

namespace vesk {

/// A failure that carries the words the user reads. Derived types are values with public fields; handlers
/// that need more than the words catch the derived type.
class Error : public std::exception {
public:
    /// The user's words: whole sentences, no prefix, no trailing line end.
    virtual std::string description() const = 0;

    /// The same words for code that only knows std::exception. Valid as long as this object; not thread-safe.
    const char* what() const noexcept override;

private:
    mutable std::string what_;
};

/// A failure of a system call: what was tried, on what, and the errno value.
class SystemError : public Error {
public:
    SystemError(int code, std::string operation, std::string subject);

    std::string description() const override;

    int code = 0;           ///< errno's value, such as ENOSPC
    std::string operation;  ///< "write", "rename"
    std::string subject;    ///< the path concerned, raw bytes
};

/// The description() of a vesk::Error, else what() of a std::exception, else "Unknown error". Meant for use
/// in a catch block: `describe(std::current_exception())`.
std::string describe(const std::exception_ptr& error);

}  // namespace vesk
