/* Symbol visibility for libsvcompose.
   The library is built with -fvisibility=hidden; only what carries SV_EXPORT
   is part of the ABI. Hosts include the same headers and see plain
   declarations. */
#ifndef SV_EXPORT_H
#define SV_EXPORT_H

#if defined(_WIN32)
#  if defined(SVCOMPOSE_BUILDING)
#    define SV_EXPORT __declspec(dllexport)
#  else
#    define SV_EXPORT __declspec(dllimport)
#  endif
#elif defined(__GNUC__)
#  define SV_EXPORT __attribute__((visibility("default")))
#else
#  define SV_EXPORT
#endif

#endif
