#include "VeskCore/Support/Error.h"

#include <system_error>
#include <utility>

namespace vesk {

const char* Error::what() const noexcept {
    try {
        what_ = description();
        return what_.c_str();
    } catch (...) {
        return "Unknown error";
    }
}

SystemError::SystemError(int errorCode, std::string what, std::string on)
    : code(errorCode), operation(std::move(what)), subject(std::move(on)) {}

std::string SystemError::description() const {
    std::string words = operation;
    if (!subject.empty()) words += " " + subject;
    return words + ": " + std::generic_category().message(code);
}

std::string describe(const std::exception_ptr& error) {
    if (!error) return "Unknown error";
    try {
        std::rethrow_exception(error);
    } catch (const Error& known) {
        return known.description();
    } catch (const std::exception& other) {
        return other.what();
    } catch (...) {
        return "Unknown error";
    }
}

}  // namespace vesk
