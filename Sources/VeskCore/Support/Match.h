// Reading a tagged union: match(value, [](const Case&) {…}, …), one lambda for each case.
#pragma once

#include <utility>
#include <variant>

namespace vesk {

template <class... Lambdas>
struct Overloaded : Lambdas... {
    using Lambdas::operator()...;
};
template <class... Lambdas>
Overloaded(Lambdas...) -> Overloaded<Lambdas...>;

/// Calls the lambda that takes the active case. `value` is a std::variant or a struct with a `value` variant
/// member, which is how the tagged unions of this project are laid out. A missing case does not compile.
template <class Union, class... Lambdas>
decltype(auto) match(Union&& value, Lambdas&&... lambdas) {
    if constexpr (requires { value.value; }) {
        return std::visit(Overloaded{std::forward<Lambdas>(lambdas)...}, std::forward<Union>(value).value);
    } else {
        return std::visit(Overloaded{std::forward<Lambdas>(lambdas)...}, std::forward<Union>(value));
    }
}

}  // namespace vesk
