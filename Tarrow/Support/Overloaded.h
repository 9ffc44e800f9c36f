#pragma once

namespace kelvo {

/// Visitor built from lambdas, one per alternative of a variant.
template <class... Handlers> struct Overloaded : Handlers... { using Handlers::operator()...; };
// Clang 14 does not deduce aggregate templates by itself.
template <class... Handlers> Overloaded(Handlers...) -> Overloaded<Handlers...>;

} // namespace kelvo
