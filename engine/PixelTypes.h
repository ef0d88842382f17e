// The seven pixel types the engine is built for, and every rule of arithmetic
// that differs between them. Stage code calls these rules and never branches
// on the type itself.
//
// The integer rules reproduce 32-bit two's-complement arithmetic: differences,
// products and sums wrap instead of saturating, and conversions from floating
// point truncate toward zero with the x86 convention for values out of range
// (NaN or too large gives the "integer indefinite" value, the lowest integer
// of the conversion's width). Those wrap-arounds are intended: they decide
// distances and centres, and the class raster must not change by a bit.
#pragma once

#include "Lanes.h"
#include "RunResult.h"

#include <gdal.h>

#include <cmath>
#include <cstdint>
#include <type_traits>

namespace isodata {

// The one list of the seven element types: X(T) once for each. Every engine
// source file ends by instantiating what it defines with it, the run
// driver's dispatch has one case per entry, and the typed tests run over it.
#define ISODATA_FOR_EACH_PIXEL_TYPE(X) \
    X(std::uint8_t) X(std::uint16_t) X(std::int16_t) X(std::uint32_t) X(std::int32_t) X(float) X(double)

template <class T> struct PixelTraits;
template <> struct PixelTraits<std::uint8_t> {
    static constexpr GDALDataType gdalType = GDT_Byte;
    static constexpr RunResult failure = RunResult::EngineFailedByte;
};
template <> struct PixelTraits<std::uint16_t> {
    static constexpr GDALDataType gdalType = GDT_UInt16;
    static constexpr RunResult failure = RunResult::EngineFailedUInt16;
};
template <> struct PixelTraits<std::int16_t> {
    static constexpr GDALDataType gdalType = GDT_Int16;
    static constexpr RunResult failure = RunResult::EngineFailedInt16;
};
template <> struct PixelTraits<std::uint32_t> {
    static constexpr GDALDataType gdalType = GDT_UInt32;
    static constexpr RunResult failure = RunResult::EngineFailedUInt32;
};
template <> struct PixelTraits<std::int32_t> {
    static constexpr GDALDataType gdalType = GDT_Int32;
    static constexpr RunResult failure = RunResult::EngineFailedInt32;
};
template <> struct PixelTraits<float> {
    static constexpr GDALDataType gdalType = GDT_Float32;
    static constexpr RunResult failure = RunResult::EngineFailedFloat32;
};
template <> struct PixelTraits<double> {
    static constexpr GDALDataType gdalType = GDT_Float64;
    static constexpr RunResult failure = RunResult::EngineFailedFloat64;
};

// Type groups the rules below are written for.
template <class T> inline constexpr bool kIsSmallInt =  // byte, 16-bit signed and unsigned
    std::is_same_v<T, std::uint8_t> || std::is_same_v<T, std::uint16_t> || std::is_same_v<T, std::int16_t>;
template <class T> inline constexpr bool kIsInt32 = std::is_same_v<T, std::int32_t>;
template <class T> inline constexpr bool kIsUInt32 = std::is_same_v<T, std::uint32_t>;
template <class T> inline constexpr bool kIsFloat = std::is_same_v<T, float>;

// Truncation toward zero into 32 or 64 bits; NaN and out-of-range values give
// the lowest integer of that width, as the x86 conversion instructions do.
inline std::int32_t TruncateToInt32(double v) {
    if (!(v > -2147483649.0 && v < 2147483648.0)) return INT32_MIN;
    return static_cast<std::int32_t>(v);
}
inline std::int64_t TruncateToInt64(double v) {
    if (!(v >= -9223372036854775808.0 && v < 9223372036854775808.0)) return INT64_MIN;
    return static_cast<std::int64_t>(v);
}

// A floating-point value stored as a centre of type T: byte and 16-bit keep
// the low bits of the 32-bit truncation, unsigned 32-bit the low bits of the
// 64-bit truncation, signed 32-bit the 32-bit truncation; float rounds to
// nearest, double keeps the value. No clamping anywhere.
template <class T>
inline T ToPixel(double v) {
    if constexpr (kIsSmallInt<T>) return static_cast<T>(static_cast<std::uint32_t>(TruncateToInt32(v)));
    else if constexpr (kIsInt32<T>) return TruncateToInt32(v);
    else if constexpr (kIsUInt32<T>) return static_cast<T>(static_cast<std::uint64_t>(TruncateToInt64(v)));
    else return static_cast<T>(v);
}

// Classification distance term of one band, |centre - pixel| as a double.
// P is a pixel type T or a vector of T (see Lanes.h); a vector gives every
// lane exactly what one pixel gives.
//  byte, 16-bit: exact difference of the values widened to int.
//  signed 32-bit: 32-bit subtraction, wrapping, read as signed.
//  unsigned 32-bit: 32-bit subtraction read as unsigned, so a centre below the
//    pixel is about 2^32 away in that band; intended.
//  float: single-precision difference, widened.
//  double: sqrt(d * d), which differs from |d| on overflow and underflow.
// For all but double, sqrt(d * d) == |d| exactly, so |d| is used directly.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wpsabi"  // see Lanes.h
template <class P>
inline lanes::Rebind<double, P> ClassifyTerm(P centre, P pixel) {
    using T = typename lanes::Traits<P>::Element;
    if constexpr (kIsSmallInt<T>) {
        return lanes::Abs(lanes::Convert<double>(lanes::Convert<int>(centre) - lanes::Convert<int>(pixel)));
    } else if constexpr (kIsInt32<T>) {
        const auto wrapped = lanes::Bits<std::uint32_t>(centre) - lanes::Bits<std::uint32_t>(pixel);
        return lanes::Abs(lanes::Convert<double>(lanes::Bits<std::int32_t>(wrapped)));
    } else if constexpr (kIsUInt32<T>) {
        return lanes::Convert<double>(static_cast<P>(centre - pixel));
    } else if constexpr (kIsFloat<T>) {
        return lanes::Abs(lanes::Convert<double>(static_cast<P>(centre - pixel)));
    } else {
        const P d = centre - pixel;
        return lanes::Sqrt(d * d);
    }
}
#pragma GCC diagnostic pop

// Sample distance term, larger minus smaller, in T: wraps for the integer types.
template <class T>
inline T SampleTerm(T a, T b) {
    if constexpr (std::is_integral_v<T>) {
        using U = std::make_unsigned_t<T>;
        return a > b ? static_cast<T>(static_cast<U>(static_cast<U>(a) - static_cast<U>(b)))
                     : static_cast<T>(static_cast<U>(static_cast<U>(b) - static_cast<U>(a)));
    } else {
        return a > b ? a - b : b - a;
    }
}

// Sample distances accumulate in T, modulo the type's range for integers.
template <class T>
inline T SampleAdd(T sum, T term) {
    if constexpr (std::is_integral_v<T>) {
        using U = std::make_unsigned_t<T>;
        return static_cast<T>(static_cast<U>(static_cast<U>(sum) + static_cast<U>(term)));
    } else {
        return sum + term;
    }
}

// Descending order of distances in T. NaN ranks below every number, so that
// sorting stays well defined on float images with NaN pixels.
template <class T>
inline bool DistanceGreater(T a, T b) {
    if constexpr (std::is_floating_point_v<T>) {
        if (std::isnan(b)) return !std::isnan(a);
    }
    return a > b;
}

// Squared deviation of a pixel from its centre, as added up by the split.
//  byte, 16-bit: int difference, squared in 32 bits (wrapping), signed.
//  signed 32-bit: difference and square wrap in 32 bits, read as signed.
//  unsigned 32-bit: the same, read as unsigned.
//  float: difference and square in single precision, then widened.
//  double: in double.
template <class T>
inline double SquaredDeviation(T pixel, T centre) {
    if constexpr (kIsSmallInt<T>) {
        const auto d = static_cast<std::uint32_t>(static_cast<int>(pixel) - static_cast<int>(centre));
        return static_cast<double>(static_cast<std::int32_t>(d * d));
    } else if constexpr (kIsInt32<T>) {
        const std::uint32_t d = static_cast<std::uint32_t>(pixel) - static_cast<std::uint32_t>(centre);
        return static_cast<double>(static_cast<std::int32_t>(d * d));
    } else if constexpr (kIsUInt32<T>) {
        const std::uint32_t d = pixel - centre;
        return static_cast<double>(d * d);
    } else {
        const T d = pixel - centre;
        return static_cast<double>(d * d);
    }
}

// Difference of two centres in one band for the merge distance.
//  byte, 16-bit: int difference; signed 32-bit: wrapping, signed;
//  unsigned 32-bit: wrapping, unsigned; float: single precision; double.
template <class T>
inline double CenterDifference(T a, T b) {
    if constexpr (kIsSmallInt<T>) {
        return static_cast<double>(static_cast<int>(a) - static_cast<int>(b));
    } else if constexpr (kIsInt32<T>) {
        return static_cast<double>(
            static_cast<std::int32_t>(static_cast<std::uint32_t>(a) - static_cast<std::uint32_t>(b)));
    } else if constexpr (kIsUInt32<T>) {
        return static_cast<double>(static_cast<std::uint32_t>(a - b));
    } else {
        return static_cast<double>(a - b);
    }
}

// Size-weighted mean (a * na + b * nb) / (na + nb) of two centre values.
//  byte, 16-bit, signed 32-bit: 32-bit products and sum (wrapping), signed
//    division truncating toward zero, low bits stored.
//  unsigned 32-bit: the same in unsigned arithmetic.
//  float: in single precision (the counts and their sum as floats).
//  double: in double.
// Integer types have no value for two empty clusters: the mean is refused
// (false) and the caller keeps the centre. Float types give NaN there.
template <class T>
inline bool WeightedMean(T a, std::int32_t na, T b, std::int32_t nb, T& out) {
    const std::uint32_t total = static_cast<std::uint32_t>(na) + static_cast<std::uint32_t>(nb);
    if constexpr (kIsUInt32<T>) {
        if (total == 0) return false;
        out = static_cast<T>((a * static_cast<std::uint32_t>(na) + b * static_cast<std::uint32_t>(nb)) / total);
        return true;
    } else if constexpr (std::is_integral_v<T>) {
        const std::uint32_t sum = static_cast<std::uint32_t>(static_cast<std::int32_t>(a)) * static_cast<std::uint32_t>(na) +
                                  static_cast<std::uint32_t>(static_cast<std::int32_t>(b)) * static_cast<std::uint32_t>(nb);
        const auto num = static_cast<std::int32_t>(sum);
        const auto den = static_cast<std::int32_t>(total);
        if (den == 0) return false;
        const std::int32_t q = (den == -1) ? static_cast<std::int32_t>(0u - sum) : num / den;
        out = static_cast<T>(static_cast<std::uint32_t>(q));
        return true;
    } else {
        const T fa = static_cast<T>(na), fb = static_cast<T>(nb);
        const T ft = static_cast<T>(static_cast<std::int32_t>(total));
        out = (a * fa + b * fb) / ft;
        return true;
    }
}

} // namespace isodata
