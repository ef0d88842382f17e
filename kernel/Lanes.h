// GCC vector types of N lanes and the few element-wise operations the row
// kernels use. Every operation also takes a plain number (one lane) and then
// does exactly what the scalar expression does, so one arithmetic rule serves
// a single pixel and a vector of pixels alike, lane for lane the same bits.
#pragma once

#include "VectorIsa.h"

#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <limits>
#include <type_traits>

// Functions taking or returning vectors are inlined into callers compiled for
// the same instruction set, so no vector crosses a call of another set's ABI
// and GCC's note about that ABI does not apply.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wpsabi"

namespace isodata::lanes {

template <class E, std::size_t N>
struct VectorType {
    typedef E type __attribute__((vector_size(N * sizeof(E))));
};
template <class E>
struct VectorType<E, 1> {
    using type = E;
};

// N lanes of E; one lane is E itself.
template <class E, std::size_t N>
using Vector = typename VectorType<E, N>::type;

// Element type and lane count of a number or a vector.
template <class V, bool = std::is_arithmetic_v<V>>
struct Traits {
    using Element = V;
    static constexpr std::size_t kLanes = 1;
};
template <class V>
struct Traits<V, false> {
    using Element = std::remove_cv_t<std::remove_reference_t<decltype(std::declval<V>()[0])>>;
    static constexpr std::size_t kLanes = sizeof(V) / sizeof(Element);
};

// As many lanes of E as V has.
template <class E, class V>
using Rebind = Vector<E, Traits<V>::kLanes>;

template <std::size_t N, class E>
ISODATA_ALWAYS_INLINE Vector<E, N> Load(const E* p) {
    Vector<E, N> v;
    std::memcpy(&v, p, sizeof v);
    return v;
}

template <std::size_t N, class E>
ISODATA_ALWAYS_INLINE Vector<E, N> Broadcast(E e) {
    if constexpr (N == 1) return e;
    else return Vector<E, N>{} + e;
}

// Each lane converted as static_cast converts one number.
template <class E, class V>
ISODATA_ALWAYS_INLINE Rebind<E, V> Convert(V v) {
    if constexpr (std::is_arithmetic_v<V>) return static_cast<E>(v);
    else return __builtin_convertvector(v, Rebind<E, V>);
}

// The same bits read as another element type of the same width.
template <class E, class V>
ISODATA_ALWAYS_INLINE Rebind<E, V> Bits(V v) {
    static_assert(sizeof(E) == sizeof(typename Traits<V>::Element), "same width");
    Rebind<E, V> r;
    std::memcpy(&r, &v, sizeof r);
    return r;
}

// |v|: the sign bit cleared, as fabs does.
template <class V>
ISODATA_ALWAYS_INLINE V Abs(V v) {
    if constexpr (std::is_arithmetic_v<V>) {
        return std::fabs(v);
    } else {
        using E = typename Traits<V>::Element;
        using I = std::conditional_t<sizeof(E) == 4, std::int32_t, std::int64_t>;
        return Bits<E>(Bits<I>(v) & std::numeric_limits<I>::max());
    }
}

// Correctly rounded square root of every lane.
template <class V>
ISODATA_ALWAYS_INLINE V Sqrt(V v) {
    if constexpr (std::is_arithmetic_v<V>) {
        return std::sqrt(v);
    } else {
        for (std::size_t i = 0; i < Traits<V>::kLanes; ++i) v[i] = std::sqrt(v[i]);
        return v;
    }
}

} // namespace isodata::lanes

#pragma GCC diagnostic pop
