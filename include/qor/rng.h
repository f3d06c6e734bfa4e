/* Random stream core and basic generators of libqor_sse42.so: the generator
 * registry, stream objects with their chunks, the shared read-only data table,
 * abstract streams and the routines of the basic generators.
 *
 * All functions return a signed 32-bit status (0 success, negative failure)
 * unless stated otherwise.  Streams are opaque blocks that begin with a
 * StreamHeader; they are passed around as void pointers. */
#ifndef QOR_RNG_H
#define QOR_RNG_H

#include <stddef.h>
#include <stdint.h>

#include "qor/export.h"

#ifdef __cplusplus
extern "C" {
#endif

/* ---- status codes ---------------------------------------------------- */
#define QOR_RNG_OK 0
#define QOR_RNG_ERROR_BAD_METHOD (-2)
#define QOR_RNG_ERROR_BAD_ARG (-3)
#define QOR_RNG_ERROR_MEM_FAILURE (-4)
#define QOR_RNG_ERROR_NULL_PTR (-5)
#define QOR_RNG_ERROR_INVALID_BRNG (-1000)
#define QOR_RNG_ERROR_LEAPFROG_UNSUPPORTED (-1002)
#define QOR_RNG_ERROR_SKIPAHEAD_UNSUPPORTED (-1003)
#define QOR_RNG_ERROR_SKIPAHEADEX_UNSUPPORTED (-1004)
#define QOR_RNG_ERROR_BAD_STREAM_STATE_SIZE (-1008)
#define QOR_RNG_ERROR_BAD_WORD_SIZE (-1009)
#define QOR_RNG_ERROR_BAD_NSEEDS (-1010)
#define QOR_RNG_ERROR_BAD_NBITS (-1011)
/* Registration refused because all 512 rows of the current table are used. */
#define QOR_RNG_ERROR_REGISTRY_FULL (-1012)
#define QOR_RNG_ERROR_LEAPFROG_NSTREAMS (-1013)
#define QOR_RNG_ERROR_BAD_UPDATE (-1120)
#define QOR_RNG_ERROR_NO_NUMBERS (-1121)
#define QOR_RNG_ERROR_INVALID_ABSTRACT_STREAM (-1122)
#define QOR_RNG_ERROR_NO_SHARED_ENTRY (-3000)
#define QOR_RNG_ERROR_SHARED_TABLE_FULL (-3001)

/* ---- initialisation methods ------------------------------------------ */
#define QOR_RNG_INIT_SEED 0
#define QOR_RNG_INIT_LEAPFROG 1
#define QOR_RNG_INIT_SKIPAHEAD 2
#define QOR_RNG_INIT_SKIPAHEADEX 3

/* ---- generator identifiers ------------------------------------------- */
#define QOR_BRNG_MCG31 0x100000
#define QOR_BRNG_R250 0x200000
#define QOR_BRNG_MRG32K3A 0x300000
#define QOR_BRNG_MCG59 0x400000
#define QOR_BRNG_WH 0x500000
#define QOR_BRNG_SOBOL 0x600000
#define QOR_BRNG_NIEDERR 0x700000
#define QOR_BRNG_MT19937 0x800000
#define QOR_BRNG_MT2203 0x900000
#define QOR_BRNG_IABSTRACT 0xA00000
#define QOR_BRNG_DABSTRACT 0xB00000
#define QOR_BRNG_SABSTRACT 0xC00000
#define QOR_BRNG_SFMT19937 0xD00000
#define QOR_BRNG_NONDETERM 0xE00000
#define QOR_BRNG_ARS5 0xF00000
#define QOR_BRNG_PHILOX4X32X10 0x1000000

#define QOR_RNG_REGISTRY_CAPACITY 512
#define QOR_RNG_BUILTIN_ROWS 16
#define QOR_RNG_LEGACY_ROWS 281
#define QOR_RNG_SHARED_TABLE_CAPACITY 128

/* ---- records ---------------------------------------------------------- */
typedef int32_t (*QorBrngInitStream)(int32_t method, void *stream, int32_t n,
                                     const uint32_t *params);
typedef int32_t (*QorBrngGenerateS)(void *stream, int32_t n, float *r, float a, float b);
typedef int32_t (*QorBrngGenerateD)(void *stream, int32_t n, double *r, double a, double b);
/* r holds n output words of the row's wordSize bytes each. */
typedef int32_t (*QorBrngGenerateI)(void *stream, int32_t n, void *r);

/* One registry row (56 bytes). */
typedef struct GeneratorRecord {
  int32_t stateSize;    /* bytes of a stream, 16-byte header included */
  int32_t seedCount;    /* state words of wordSize bytes (copied by CopyStreamState) */
  int32_t zeroIncluded; /* 1 if the integer output can be 0 */
  int32_t wordSize;     /* bytes per integer output word: 4, 8 or 16 */
  int32_t bitCount;     /* significant bits per integer output word */
  int32_t reserved;     /* alignment */
  QorBrngInitStream initStream;
  QorBrngGenerateS generateS;
  QorBrngGenerateD generateD;
  QorBrngGenerateI generateI;
} GeneratorRecord;

typedef struct StreamChunk StreamChunk;

/* First 16 bytes of every stream block. */
typedef struct StreamHeader {
  int32_t brng;   /* generator identifier, member included */
  uint32_t flags; /* 1 when created */
  StreamChunk *chunks;
} StreamHeader;

/* A tagged block of derived data attached to a stream (40 bytes). */
struct StreamChunk {
  uint32_t id;
  int32_t size;
  void *data;
  StreamChunk *next;
  uint64_t key[2]; /* shared-table key; zero for private data */
};

/* One entry of the process-wide shared read-only data table (32 bytes). */
typedef struct GlobalDataEntry {
  uint64_t key[2];
  uint32_t refCount;
  uint32_t reserved;
  void *data;
} GlobalDataEntry;

/* Refill routines of abstract streams: write k values circularly into buffer
 * from slot *idx (at least *nmin when possible, at most *nmax) and return k. */
typedef int32_t (*QorRngIUpdate)(void *stream, int32_t *n, uint32_t *buffer, int32_t *nmin,
                                 int32_t *nmax, int32_t *idx);
typedef int32_t (*QorRngDUpdate)(void *stream, int32_t *n, double *buffer, int32_t *nmin,
                                 int32_t *nmax, int32_t *idx);
typedef int32_t (*QorRngSUpdate)(void *stream, int32_t *n, float *buffer, int32_t *nmin,
                                 int32_t *nmax, int32_t *idx);

/* ---- registry --------------------------------------------------------- */
QOR_API extern GeneratorRecord __RegBrngsNew[QOR_RNG_REGISTRY_CAPACITY];
QOR_API extern GeneratorRecord __RegBrngs[QOR_RNG_REGISTRY_CAPACITY];

QOR_API GeneratorRecord *__rixGetBrngBaseOffset(int32_t brng, int32_t *row, int32_t *member);
QOR_API int32_t __rixIsBrngValid(const GeneratorRecord *table, int32_t row, int32_t member);
QOR_API int32_t __rixGetBrngProperties(int32_t brng, GeneratorRecord *properties);
QOR_API int32_t __rixGetNumRegBrngs(void);
QOR_API int32_t __rixRegisterBrng(const GeneratorRecord *properties);

/* ---- streams ---------------------------------------------------------- */
QOR_API int32_t __rixNewStreamEx(void **stream, int32_t brng, uint32_t n, const uint32_t *params);
QOR_API int32_t __rixAllocateStream(void **stream, const GeneratorRecord *table, int32_t brng,
                                    int32_t row, int32_t member);
QOR_API int32_t __rixiNewAbstractStream(void **stream, int32_t n, uint32_t *buffer,
                                        QorRngIUpdate refill);
QOR_API int32_t __rixdNewAbstractStream(void **stream, int32_t n, double *buffer, double a,
                                        double b, QorRngDUpdate refill);
QOR_API int32_t __rixsNewAbstractStream(void **stream, int32_t n, float *buffer, float a,
                                        float b, QorRngSUpdate refill);
QOR_API int32_t __rixDeleteStream(void **stream);
QOR_API int32_t __rixCopyStream(void **newStream, const void *src);
QOR_API int32_t __rixCopyStreamState(void *dst, const void *src);
QOR_API int32_t __rixLeapfrogStream(void *stream, int32_t k, int32_t nstreams);
QOR_API int32_t __rixSkipAheadStream(void *stream, uint64_t nskip);
QOR_API int32_t __rixSkipAheadStreamEx(void *stream, int32_t n, const uint64_t *nskip);
QOR_API int32_t __rixGetStreamStateBrng(const void *stream);
QOR_API int32_t __rixCPUisAES(void);
QOR_API int32_t __rixCPUisRDRAND(void);
QOR_API int32_t __rixCPUisVAES(void);

/* ---- chunks and the shared read-only data table ------------------------ */
QOR_API int32_t __rixAddChunk(void *stream, uint32_t id, const uint64_t *key, void *data,
                              int32_t size);
QOR_API void *__rixSearchChunk(const void *stream, uint32_t id);
QOR_API int32_t __rixGetNumChunks(const void *stream);
QOR_API int32_t __rixDeleteChunks(void *stream);
QOR_API int32_t __rixDeleteChunksById(void *stream, uint32_t id);
QOR_API int32_t __rixCopyChunks(void *dst, const void *src);
QOR_API int32_t __rixFindGlobRODataTableEntry(GlobalDataEntry **entry, const uint64_t *key);
QOR_API int32_t __rixCreateGlobRODataTableEntry(GlobalDataEntry **entry, const uint64_t *key,
                                                void *data);
/* Raises the reference count of key's entry and stores its data pointer in
 * out[1]; does nothing when there is no such entry. */
QOR_API void __rixRegisterGlobRODataReference(void **out, const uint64_t *key);
QOR_API void __rixUnregisterGlobRODataReference(const uint64_t *key);
QOR_API int32_t __rixGenerateNewGlobalRODataTableEntryId(uint64_t *key, uint64_t tag);

/* ---- basic generator routines ----------------------------------------- */
#define QOR_RNG_DECLARE_BRNG(NAME)                                                          \
  QOR_API int32_t __rixBRng##NAME##InitStream(int32_t method, void *stream, int32_t n,     \
                                              const uint32_t *params);                     \
  QOR_API int32_t __rixsBRng##NAME(void *stream, int32_t n, float *r, float a, float b);   \
  QOR_API int32_t __rixdBRng##NAME(void *stream, int32_t n, double *r, double a, double b); \
  QOR_API int32_t __rixiBRng##NAME(void *stream, int32_t n, void *r);

QOR_RNG_DECLARE_BRNG(MCG31M1)
QOR_RNG_DECLARE_BRNG(R250)
QOR_RNG_DECLARE_BRNG(MRG32K3A)
QOR_RNG_DECLARE_BRNG(MCG59)
QOR_RNG_DECLARE_BRNG(WH)
/* Quasi-random generators (Sobol with Joe-Kuo direction numbers, Niederreiter
 * in base 2; docs/rng_qrng.md).  Seed word 0 is the dimension d (absent or 0:
 * 1; at most QOR_SOBOL_MAX_DIM or QOR_NIEDERR_MAX_DIM, else -3).  Seed word 1
 * selects the generator matrices: absent or 0 the built-in ones;
 * QOR_QRNG_SEED_POLYNOMIALS the caller's polynomials (Sobol: per dimension
 * the words s, a, m_1..m_s; Niederreiter: one irreducible polynomial per
 * dimension, bit i = coefficient of x^i); QOR_QRNG_SEED_DIRECTIONS the
 * caller's 32 direction numbers per dimension.  Bad data gives -3.
 * Output: the d coordinates of each point in turn, as 32-bit fractions
 * (integer) or mapped to [a, b), points in Gray-code order from index 1 (the
 * origin is never delivered).  Skip-ahead counts numbers (points x d) and
 * jumps directly; leapfrog (k, d) makes the stream deliver coordinate k only
 * (any other count: -1002). */
#define QOR_SOBOL_MAX_DIM 78
#define QOR_NIEDERR_MAX_DIM 318
#define QOR_QRNG_SEED_DEFAULT 0
#define QOR_QRNG_SEED_POLYNOMIALS 1
#define QOR_QRNG_SEED_DIRECTIONS 2
QOR_RNG_DECLARE_BRNG(Sobol)
QOR_RNG_DECLARE_BRNG(Niederr)
QOR_RNG_DECLARE_BRNG(MT19937)
QOR_RNG_DECLARE_BRNG(MT2203)
QOR_RNG_DECLARE_BRNG(SFMT19937)
QOR_RNG_DECLARE_BRNG(TRNG)
QOR_RNG_DECLARE_BRNG(ARS5)
QOR_RNG_DECLARE_BRNG(PHILOX4X32X10)

QOR_API int32_t __rixBRngiAbstractInitStream(int32_t method, void *stream, int32_t n,
                                             const uint32_t *params);
QOR_API int32_t __rixBRngdAbstractInitStream(int32_t method, void *stream, int32_t n,
                                             const uint32_t *params);
QOR_API int32_t __rixBRngsAbstractInitStream(int32_t method, void *stream, int32_t n,
                                             const uint32_t *params);
QOR_API int32_t __rixiBRngiAbstract(void *stream, int32_t n, void *r);
QOR_API int32_t __rixdBRngdAbstract(void *stream, int32_t n, double *r, double a, double b);
QOR_API int32_t __rixsBRngsAbstract(void *stream, int32_t n, float *r, float a, float b);
/* The refusing routine of the abstract rows, under its six names. */
QOR_API int32_t __rixsBRngiAbstract(void *stream, int32_t n, float *r, float a, float b);
QOR_API int32_t __rixsBRngdAbstract(void *stream, int32_t n, float *r, float a, float b);
QOR_API int32_t __rixdBRngiAbstract(void *stream, int32_t n, double *r, double a, double b);
QOR_API int32_t __rixdBRngsAbstract(void *stream, int32_t n, double *r, double a, double b);
QOR_API int32_t __rixiBRngdAbstract(void *stream, int32_t n, void *r);
QOR_API int32_t __rixiBRngsAbstract(void *stream, int32_t n, void *r);

/* ---- stream save and load --------------------------------------------- */
/* Statuses of the save and load functions. */
#define QOR_RNG_ERROR_FILE_CLOSE (-1100)
#define QOR_RNG_ERROR_FILE_OPEN (-1101)
#define QOR_RNG_ERROR_FILE_WRITE (-1102)
#define QOR_RNG_ERROR_FILE_READ (-1103)
#define QOR_RNG_ERROR_BAD_FILE_FORMAT (-1110)
#define QOR_RNG_ERROR_UNSUPPORTED_FILE_VER (-1111)
#define QOR_RNG_ERROR_NONDETERM_NOT_SUPPORTED (-1130)
#define QOR_RNG_ERROR_ARS5_NOT_SUPPORTED (-1140)
#define QOR_RNG_ERROR_BAD_MEM_FORMAT (-1200)

/* Bytes that __rixSaveStreamM writes for this stream (state and chunks). */
QOR_API int32_t __rixGetStreamSize(const void *stream);
/* Writes the stream into buffer, which must hold __rixGetStreamSize bytes.
 * Only the bytes of the layout are written; padding bytes of the header
 * keep their previous contents. */
QOR_API int32_t __rixSaveStreamM(const void *stream, void *buffer);
/* Creates a new stream from a saved buffer (current or older layout).  On
 * failure *stream is null. */
QOR_API int32_t __rixLoadStreamM(void **stream, const void *buffer);
/* File forms: name is nameLength characters, or zero-terminated when
 * nameLength is negative.  Further arguments are accepted and ignored. */
QOR_API int32_t __rixSaveStreamF(const void *stream, const char *name, int32_t nameLength, ...);
QOR_API int32_t __rixLoadStreamF(void **stream, const char *name, int32_t nameLength, ...);


/* ---- continuous distributions by transformation ----------------------- */
/* Arguments: method word, stream, count n, result array r, then the
 * distribution's parameters.  Bit 30 of the method word asks for results
 * clamped into the support where a member supports it; the low bits pick the
 * Gaussian method.  The return value is the status of the first failing inner
 * draw, else that of the last uniform draw.  Parameter validity (sigma > 0,
 * beta > 0, a < b, alpha > 0) is the caller's contract. */
#define QOR_RNG_METHOD_ACCURATE 0x40000000u
#define QOR_RNG_GAUSSIAN_BOXMULLER 0u  /* two uniforms per variate, no state */
#define QOR_RNG_GAUSSIAN_BOXMULLER2 1u /* pairs, continuous across calls */
#define QOR_RNG_GAUSSIAN_ICDF 2u       /* inverse error function */
/* Chunk identifier of the pending Gaussian pair (two doubles, -1.0 -1.0 when
 * nothing is pending). */
#define QOR_RNG_CHUNK_GAUSSIAN_PAIR 2u

#define QOR_RNG_DECLARE_DIST2(NAME)                                                         \
  QOR_API int32_t _rixsRng##NAME(uint32_t method, void *stream, int32_t n, float *r, float p1, \
                                 float p2);                                                 \
  QOR_API int32_t _rixdRng##NAME(uint32_t method, void *stream, int32_t n, double *r,       \
                                 double p1, double p2);

QOR_RNG_DECLARE_DIST2(Uniform)     /* a, b */
QOR_RNG_DECLARE_DIST2(Gaussian)    /* mean a, sigma */
QOR_RNG_DECLARE_DIST2(Exponential) /* displacement a, scale beta */
QOR_RNG_DECLARE_DIST2(Laplace)     /* a, beta */
QOR_RNG_DECLARE_DIST2(Cauchy)      /* a, beta */
QOR_RNG_DECLARE_DIST2(Rayleigh)    /* a, beta */
QOR_RNG_DECLARE_DIST2(Gumbel)      /* a, beta */
#undef QOR_RNG_DECLARE_DIST2

/* Weibull: shape alpha, displacement a, scale beta. */
QOR_API int32_t _rixsRngWeibull(uint32_t method, void *stream, int32_t n, float *r, float alpha,
                                float a, float beta);
QOR_API int32_t _rixdRngWeibull(uint32_t method, void *stream, int32_t n, double *r,
                                double alpha, double a, double beta);
/* Lognormal: x = b + beta * exp(g), g Gaussian with mean a and deviation
 * sigma (method word 0: Gaussian method 1, sharing its pending pair;
 * anything else: method 2). */
QOR_API int32_t _rixsRngLognormal(uint32_t method, void *stream, int32_t n, float *r, float a,
                                  float sigma, float b, float beta);
QOR_API int32_t _rixdRngLognormal(uint32_t method, void *stream, int32_t n, double *r, double a,
                                  double sigma, double b, double beta);


/* ---- integer uniform, Bernoulli and uniform bits ------------------------ */
/* The generator cannot hand out uniformly distributed bits of the requested
 * width. */
#define QOR_RNG_ERROR_NO_UNIFORM_BITS (-1014)
/* n integers in [a, b). */
QOR_API int32_t _rixiRngUniform(uint32_t method, void *stream, int32_t n, int32_t *r, int32_t a,
                                int32_t b);
/* n values 1 (probability p) or 0. */
QOR_API int32_t _rixiRngBernoulli(uint32_t method, void *stream, int32_t n, uint32_t *r,
                                  double p);
/* n native output words of the generator (wordSize bytes each). */
QOR_API int32_t _rixiRngUniformBits(uint32_t method, void *stream, int32_t n, uint32_t *r);
/* n 32-bit words of uniform bits. */
QOR_API int32_t _rixiRngUniformBits32(uint32_t method, void *stream, int32_t n, uint32_t *r);
/* n 64-bit words of uniform bits: 2n 32-bit words of r, low half first. */
QOR_API int32_t _rixiRngUniformBits64(uint32_t method, void *stream, int32_t n, uint32_t *r);

#ifdef __cplusplus
}
#endif

#endif
