// DtNlTypes.h - fixed-width integer names used across every layer's interfaces.
//
// UINT8 / UINT16 / UINT32 are the unsigned 8-, 16- and 32-bit types; UINT is the
// unsigned 32-bit type of byte counts and sizes (ReadU8(UINT8*, UINT)). The
// library relies on these exact widths, also on 32-bit targets where `long` is
// 32 bits.
#ifndef KPZ_UTIL_DTNLTYPES_H
#define KPZ_UTIL_DTNLTYPES_H

#include <cstdint>

typedef std::uint8_t UINT8;
typedef std::uint16_t UINT16;
typedef std::uint32_t UINT32;
typedef std::uint32_t UINT;
typedef std::int32_t INT32;

#endif  // KPZ_UTIL_DTNLTYPES_H
