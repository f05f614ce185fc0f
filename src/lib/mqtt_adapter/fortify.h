// Included before everything else: has the C library check what it writes into buffers, unless the
// compiler was told already how much it shall check.
#if defined(__OPTIMIZE__) && !defined(_FORTIFY_SOURCE)
#define _FORTIFY_SOURCE 2
#endif
