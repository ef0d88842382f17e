// Symbol visibility of the host SDK library.
#pragma once

#if defined(_WIN32)
#  if defined(KAL_HOST_BUILDING)
#    define KAL_API __declspec(dllexport)
#  else
#    define KAL_API __declspec(dllimport)
#  endif
#else
#  define KAL_API __attribute__((visibility("default")))
#endif
