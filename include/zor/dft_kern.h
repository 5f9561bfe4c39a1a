/* SPDX-License-Identifier: MIT
 * Discrete Fourier transforms, kernel library: the descriptor record and the routines that plan and run it.
 * Programs use zor/dft.h; this header is for code that drives the kernel library itself, such as the threaded
 * layer. Forward has exp(-2 pi i jk/n), backward exp(+2 pi i jk/n); neither divides by n. */
#ifndef ZOR_DFT_KERN_H
#define ZOR_DFT_KERN_H

#include "zor/types.h"

ZOR_BEGIN_C

/* Settings. The numbers are part of the interface. */
enum {
  ZOR_DFT_COMMITTED = 30,
  ZOR_DFT_UNCOMMITTED = 31,
  ZOR_DFT_COMPLEX = 32, /* forward domain */
  ZOR_DFT_REAL = 33,
  ZOR_DFT_SINGLE = 35, /* precision */
  ZOR_DFT_DOUBLE = 36,
  ZOR_DFT_COMPLEX_COMPLEX = 39, /* storage: interleaved complex elements */
  ZOR_DFT_COMPLEX_REAL = 40,    /* storage: conjugate-even data packed into reals */
  ZOR_DFT_REAL_COMPLEX = 41,    /* named, not implemented */
  ZOR_DFT_REAL_REAL = 42,       /* storage: real and imaginary parts in two arrays */
  ZOR_DFT_INPLACE = 43,         /* placement */
  ZOR_DFT_NOT_INPLACE = 44,
  ZOR_DFT_ORDERED = 48, /* ordering */
  ZOR_DFT_BACKWARD_SCRAMBLED = 49,
  ZOR_DFT_NONE = 53,
  ZOR_DFT_FORMAT_PADDED = 54, /* packed formats of a real spectrum */
  ZOR_DFT_FORMAT_TAIL = 55,
  ZOR_DFT_FORMAT_SECOND = 56,
  ZOR_DFT_FORMAT_HALF_COMPLEX = 57
};

/* Parameters of zor_dft_set_value, with the type of the value. */
enum {
  ZOR_DFT_FORWARD_SCALE = 4,           /* double */
  ZOR_DFT_BACKWARD_SCALE = 5,          /* double */
  ZOR_DFT_NUMBER_OF_TRANSFORMS = 7,    /* zor_int */
  ZOR_DFT_COMPLEX_STORAGE = 8,         /* int: 39 or 42 */
  ZOR_DFT_REAL_STORAGE = 9,            /* int: 42 */
  ZOR_DFT_CONJUGATE_EVEN_STORAGE = 10, /* int: 39 or 40 */
  ZOR_DFT_PLACEMENT = 11,              /* int: 43 or 44 */
  ZOR_DFT_INPUT_STRIDES = 12,          /* const zor_int*: offset, then a stride a dimension, the last first */
  ZOR_DFT_OUTPUT_STRIDES = 13,         /* the same */
  ZOR_DFT_INPUT_DISTANCE = 14,         /* zor_int */
  ZOR_DFT_OUTPUT_DISTANCE = 15,        /* zor_int */
  ZOR_DFT_ORDERING = 18,               /* int: 48 or 49 */
  ZOR_DFT_DESCRIPTOR_NAME = 20,        /* const char*: 9 characters are kept */
  ZOR_DFT_PACKED_FORMAT = 21,          /* int: 54 to 57 */
  ZOR_DFT_NUMBER_OF_USER_THREADS = 26  /* zor_int: above 1, callers that may compute at once */
};

/* Status codes. */
enum {
  ZOR_DFT_OK = 0,
  ZOR_DFT_MEMORY_ERROR = 1,
  ZOR_DFT_BAD_ARGUMENT = 2, /* bad create argument; compute on a descriptor that is not committed */
  ZOR_DFT_BAD_VALUE = 3,    /* bad parameter or value; null handle */
  ZOR_DFT_BAD_DESCRIPTOR = 5,
  ZOR_DFT_NOT_IMPLEMENTED = 6,
  ZOR_DFT_ENGINE_ERROR = 7,
  ZOR_DFT_NO_USER_THREAD_SLOT = 8,
  ZOR_DFT_LENGTH_TOO_LARGE = 9,
  ZOR_DFT_NO_BREAKDOWN = 100,     /* answer of zor_dft_apply_bkdowns_*: commit instead */
  ZOR_DFT_BREAKDOWN_FAILED = 101, /* internal */
  ZOR_DFT_NOT_SPLITTABLE = 102    /* a prime length cannot run as two dimensions */
};

typedef struct ZorDftDescriptor ZorDftDescriptor;
struct ZorDftPlan;
struct ZorDftBreakdown;

/* The two arrays of split storage. A kernel gets a pointer to such a pair where it would get a data pointer.
 */
typedef struct zor_dft_split {
  void *re, *im;
} zor_dft_split;

/* What commit installs: data pointers as many as nio_args, the input's first; the others are ignored. */
typedef int32_t (*zor_dft_compute)(ZorDftDescriptor* descriptor, void* p0, void* p1, void* p2, void* p3);
/* One line of a dimension, in or out of place, with the dimension's plan and scale. */
typedef int32_t (*zor_dft_kernel)(const void* in, void* out, ZorDftDescriptor* record, void* work);
/* A run of a real plan in one output format. */
typedef int32_t (*zor_dft_runner)(const void* in, void* out, const struct ZorDftPlan* plan, void* work);
/* A complex transform of rank 2 in place; k0 and k1 are the kernels of the dimensions. */
typedef int32_t (*zor_dft_2d)(void* data, const zor_int* s0, const zor_int* s1, zor_dft_kernel k0,
                              zor_dft_kernel k1, ZorDftDescriptor* head, void* work);
/* A real transform of rank 2 in either placement: strides of the input, strides of the output. */
typedef int32_t (*zor_dft_real_2d)(const void* in, void* out, const zor_int* is0, const zor_int* is1,
                                   const zor_int* os0, const zor_int* os1, zor_dft_kernel k0,
                                   zor_dft_kernel k1, ZorDftDescriptor* head, void* work);
typedef int32_t (*zor_dft_commit_fn)(ZorDftDescriptor** handle);

/* One record per dimension, one behind the other in memory; the first is the head. H: meaningful in the head,
 * copied to all at commit. D: of the dimension. Strides, distances and offsets count elements: complex ones
 * for complex data, else reals. */
struct ZorDftDescriptor {
  zor_dft_compute compute_forward; /* null until committed */
  zor_dft_compute compute_backward;
  const struct ZorDftBreakdown* breakdown; /* owner of this descriptor, or null */
  void* breakdown_data;
  int32_t nio_args;          /* data pointers of compute: 1, 2 or 4 */
  uint8_t whole_unit : 1;    /* one transform, unit strides */
  uint8_t two_d_direct : 1;  /* rank 2 goes to the 2-D routine with no driver */
  uint8_t kernel_direct : 1; /* compute calls the kernel with no driver */
  int32_t magic;             /* ZOR_DFT_MAGIC in every record */
  int32_t commit_status;     /* 30 or 31 */
  zor_dft_commit_fn commit_fn;
  char name[10];
  int32_t reserved_a;             /* head: set while a caller of zor/dft.h computes in work_buffer */
  int32_t forward_domain;         /* H: 32 or 33 */
  int32_t precision;              /* H: 35 or 36 */
  zor_int number_of_transforms;   /* H */
  int32_t complex_storage;        /* H: 39 or 42 */
  int32_t real_storage;           /* H: 42 */
  int32_t conjugate_even_storage; /* H: 39 or 40 */
  int32_t placement;              /* H: 43 or 44 */
  int32_t packed_format;          /* H: 54 to 57 */
  zor_int input_stride;           /* D */
  zor_int output_stride;          /* D */
  int32_t reserved_b, reserved_c;
  int32_t ordering;  /* H: 48 or 49 */
  int32_t transpose; /* H: 53 */
  zor_int rank;
  zor_int dim_index;
  zor_int length;                /* D */
  zor_int half_length;           /* D: n/2+1 for dimension 0, else length */
  void *retained_a, *retained_b; /* kept over a recommit */
  void *extra_a, *extra_b;
  float forward_scale_s;
  double forward_scale_d;
  float backward_scale_s;
  double backward_scale_d;
  zor_int log2_length;                     /* D */
  zor_int input_offset, output_offset;     /* H */
  zor_int input_distance, output_distance; /* H */
  int32_t general_plan;                    /* D: 0 fixed power-of-two kernels, 1 engine plan */
  zor_int total_size;
  zor_int total_half_size;
  ZorDftDescriptor *prev_dim, *next_dim;
  zor_dft_kernel kernel_c_bwd, kernel_c_fwd, kernel_z_bwd, kernel_z_fwd;
  zor_dft_kernel whole_c_bwd, whole_c_fwd, whole_z_bwd, whole_z_fwd;
  zor_dft_kernel kernel_s_bwd, kernel_s_fwd, kernel_d_bwd, kernel_d_fwd;
  void* spare_slots[4];
  zor_dft_2d fn2d_c, fn2d_z;
  zor_dft_real_2d fn2d_sc, fn2d_dz, fn2d_cs, fn2d_zd;
  zor_dft_runner format_s_bwd, format_s_fwd, format_d_bwd, format_d_fwd;
  zor_int max_length; /* of all dimensions */
  struct ZorDftPlan *plan_c, *plan_z, *plan_cs, *plan_zs, *plan_s, *plan_d, *plan_c_unordered,
      *plan_z_unordered;
  zor_int work_size;       /* D: bytes of work of a line */
  zor_int max_work_size;   /* head: the largest, a multiple of 256 after commit */
  void* work_buffer;       /* head: a slice of max_work_size per user thread or compute thread */
  void* whole_work_buffer; /* head: handed to whole_* kernels */
  int32_t user_threads;    /* callers that may compute at once */
  int32_t thread_limit;    /* threads a compute may use */
  int32_t two_d_flag_a, two_d_flag_b;
  int32_t nd_out_copy;   /* D: the fixed real kernel reads the half spectrum in the second format */
  int32_t* thread_slots; /* head: a busy mark per user thread */
  void* private_data;    /* block of a special path, released by private_free */
  void (*private_free)(ZorDftDescriptor* record);
};

#define ZOR_DFT_MAGIC 0x544644

/* What a _par entry of the threaded layer is given: offsets are applied; out is null in place. */
typedef struct zor_dft_par_block {
  ZorDftDescriptor* descriptor;
  void* in;
  void* out;
} zor_dft_par_block;
typedef int32_t (*zor_dft_par)(zor_dft_par_block* block);

/* Creates a descriptor with default settings: lengths[0] is dimension 0, of stride 1. 0, 1 when memory is
 * short, 6 for a real transform of rank 4 or more. */
int32_t zor_dft_create_descriptor_md(ZorDftDescriptor** handle, int32_t precision, int32_t domain,
                                     zor_int rank, const zor_int* lengths);
/* 1 in place, 2 not in place; twice that for split complex storage. */
int32_t zor_dft_determine_nioargs(const ZorDftDescriptor* descriptor);
/* Releases all that commit made, the last dimension first. */
int32_t zor_dft_free_allocated_buffers(ZorDftDescriptor* descriptor);

/* Front end for callers inside the library: each create also chooses the commit routine of the threaded
 * layer. precision must be 36.0 in _d and 35.0 in _s. lengths are given last dimension first. Bad
 * arguments: 2. */
int32_t zor_dft_create_1d_d(ZorDftDescriptor** handle, double precision, int32_t domain, zor_int rank,
                            zor_int length);
int32_t zor_dft_create_1d_s(ZorDftDescriptor** handle, double precision, int32_t domain, zor_int rank,
                            zor_int length);
int32_t zor_dft_create_nd_d(ZorDftDescriptor** handle, int32_t domain, zor_int rank, const zor_int* lengths);
int32_t zor_dft_create_nd_s(ZorDftDescriptor** handle, int32_t domain, zor_int rank, const zor_int* lengths);
int32_t zor_dft_commit(ZorDftDescriptor** handle);
/* One value of the type listed with the parameter. Any setting but the name uncommits the descriptor. */
int32_t zor_dft_set_value(ZorDftDescriptor* descriptor, int32_t parameter, ...);
int32_t zor_dft_free(ZorDftDescriptor** handle);
/* Runs the transform on as many data pointers as nio_args. */
int32_t zor_dft_compute_forward(ZorDftDescriptor** handle, void* data, ...);
int32_t zor_dft_compute_backward(ZorDftDescriptor** handle, void* data, ...);
/* The text of a status, cut or filled with blanks to length characters; no terminator. */
void zor_dft_status_text(char* buffer, int32_t length, int32_t status);

/* 0 when a breakdown took the descriptor and made it ready to compute, 100 when it must be committed. */
#define ROW_APPLY(name, ...) int32_t name(ZorDftDescriptor* descriptor);
/* Plans every dimension and installs the compute functions. use_threads lets it lower thread_limit. */
#define ROW_COMMIT(name, ...) int32_t name(ZorDftDescriptor** handle, int32_t use_threads);
#include "zor/tables/dft_desc.inc"

/* A batch of `count` transforms in place, the offset of the input already applied to data. With split storage
 * the data pointers are those of a zor_dft_split. work is a slice of max_work_size bytes. In place with a
 * complex spectrum the output stands at output_offset complex elements of the same array, counted without the
 * input's offset. */
#define ROW_INPLACE(name) int32_t name(ZorDftDescriptor* descriptor, void* data, zor_int count, void* work);
#define ROW_COMPLEX(name, R, direction) ROW_INPLACE(name)
#define ROW_PACKED(name, R, direction) ROW_INPLACE(name)
#define ROW_MIXED(name, R, direction) ROW_INPLACE(name)
/* The same from in to out, which do not overlap. */
#define ROW_OUT(name) \
  int32_t name(ZorDftDescriptor* descriptor, const void* in, void* out, zor_int count, void* work);
#define ROW_COMPLEX_OUT(name, R, direction) ROW_OUT(name)
#define ROW_PACKED_OUT(name, R, direction) ROW_OUT(name)
#define ROW_MIXED_OUT(name, R, direction) ROW_OUT(name)
#include "zor/tables/dft_drive.inc"
#undef ROW_INPLACE
#undef ROW_OUT

/* A very long line as a rows of b columns, a b = n. init splits the record's length, commits the
 * sub-transforms and installs the kernel pair: 0, 1, or 102 for a prime length. */
#define ROW_INIT(name, R) int32_t name(ZorDftDescriptor* record);
/* Columns first to last - 1 of the a by b array at in: transforms of length a, twiddles, into the rows of
 * scratch. direction is 0 for forward, 1 for backward. scratch and its pitch are those of zor_dft_1d_via_2d.
 */
#define ROW_COLUMNS(name, R)                                                                  \
  int32_t name(const void* in, void* scratch, zor_int first, zor_int last, int32_t direction, \
               ZorDftDescriptor* record, void* work);
/* Rows 0 to count - 1 (at most 4) of scratch, pitch bytes apart, n elements each, to columns of out, whose
 * rows are out_stride elements apart; scale_copy multiplies by the scale. */
#define ROW_COPY(name, R) \
  void name(const void* rows, zor_int pitch, zor_int count, zor_int n, void* out, zor_int out_stride);
#define ROW_SCALE_COPY(name, R)                                                                       \
  void name(const void* rows, zor_int pitch, zor_int count, zor_int n, void* out, zor_int out_stride, \
            R scale);
#include "zor/tables/dft_via2d.inc"

/* What init keeps in private_data. Pitches are in bytes. */
typedef struct zor_dft_1d_via_2d {
  zor_int a, b;
  zor_int pitch_a, pitch_b;
  ZorDftDescriptor *sub_a, *sub_b; /* the same one when a equals b */
  zor_int twiddle_count;           /* T, a power of two above the square root of n */
  void* twiddles;                  /* exp(-2 pi i j/n), then exp(-2 pi i j T/n), for j below T */
} zor_dft_1d_via_2d;

/* Rank 2. s0 and s1 are the steps along dimensions 0 and 1 of each side, k0 and k1 their kernels, which
 * choose the direction. The real forms work in either placement; k0 is the real kernel. */
#define ROW_2D(name, R)                                                                                \
  int32_t name(void* data, const zor_int* s0, const zor_int* s1, zor_dft_kernel k0, zor_dft_kernel k1, \
               ZorDftDescriptor* head, void* work);
#define ROW_REAL_2D(name)                                                                             \
  int32_t name(const void* in, void* out, const zor_int* is0, const zor_int* is1, const zor_int* os0, \
               const zor_int* os1, zor_dft_kernel k0, zor_dft_kernel k1, ZorDftDescriptor* head,      \
               void* work);
#define ROW_PACKED_2D(name, R, dir) ROW_REAL_2D(name)
#define ROW_MIXED_2D(name, R, dir) ROW_REAL_2D(name)

/* Shares of a transform for threads: the shares of one stage may run at once, the stages one after the other.
 * Each writes its status. work is private to the call. count rows (lines of dimension 0, a step of s1 apart)
 * or columns (lines of dimension 1, s0 apart), the first at data; record is that of the line's dimension. */
#define ROW_SHARE(name)                                                               \
  void name(void* data, zor_int s0, zor_int s1, zor_int count, zor_dft_kernel kernel, \
            ZorDftDescriptor* record, int32_t* status, void* work);
#define ROW_ROWS(name, R) ROW_SHARE(name)
#define ROW_COLUMNS(name, R) ROW_SHARE(name)
#define ROW_SHARE_OUT(name, qualifier)                                                         \
  void name(qualifier void* in, void* out, zor_int is0, zor_int is1, zor_int os0, zor_int os1, \
            zor_int count, zor_dft_kernel kernel, ZorDftDescriptor* record, int32_t* status, void* work);
#define ROW_ROWS_OUT(name, In, Out) ROW_SHARE_OUT(name, const)
#define ROW_COLUMNS_OUT(name, In, Out) ROW_SHARE_OUT(name, const)
/* Conjugate-even rows of n/2+1 contiguous complex values to real rows; overwrites the input unless it is the
 * output. */
#define ROW_REAL_ROWS(name, R) ROW_SHARE_OUT(name, )
/* Packed real transforms in either placement, from the data of the whole plane: rows first to first + count -
 * 1, or columns counted as frequency 0, frequency n/2 when n is even, then the complex ones: n/2+1 in all.
 * The columns of a forward transform run in place in its output, the rows of a backward transform likewise.
 */
#define ROW_SHARE_PACKED(name)                                                                            \
  void name(const void* in, void* out, zor_int is0, zor_int is1, zor_int os0, zor_int os1, zor_int first, \
            zor_int count, zor_dft_kernel kernel, ZorDftDescriptor* head, int32_t* status, void* work);
#define ROW_PACKED_ROWS(name, R, dir) ROW_SHARE_PACKED(name)
#define ROW_PACKED_COLUMNS(name, R, dir) ROW_SHARE_PACKED(name)
/* Rank 3 and up, complex. Stage one: planes (dimensions 0 and 1) first to first + count - 1. Stage two, for
 * each dimension from 2: lines first to first + count - 1 along it, in place on the side that holds the
 * result. direction is 0 for forward, 1 for backward. */
#define ROW_PLANES(name, R)                                                                      \
  void name(void* data, zor_int first, zor_int count, int32_t direction, ZorDftDescriptor* head, \
            int32_t* status, void* work);
#define ROW_PLANES_OUT(name, R)                                                         \
  void name(const void* in, void* out, zor_int first, zor_int count, int32_t direction, \
            ZorDftDescriptor* head, int32_t* status, void* work);
#define ROW_ALONG_SHARE(name)                                                               \
  void name(void* data, zor_int dimension, zor_int first, zor_int count, int32_t direction, \
            ZorDftDescriptor* head, int32_t* status, void* work);
#define ROW_ALONG(name, R) ROW_ALONG_SHARE(name)
#define ROW_ALONG_OUT(name, R) ROW_ALONG_SHARE(name)
/* Rank 3, real with a complex spectrum, not in place. Forward: planes from in to out, then lines along
 * dimension 2 of out (in and out equal). Backward: lines along dimension 2 from in to a box of
 * total_half_size complex values packed without gaps, then planes from that box to out. */
#define ROW_MIXED_PLANES(name, R, dir)                                                                  \
  void name(void* in, void* out, zor_int first, zor_int count, ZorDftDescriptor* head, int32_t* status, \
            void* work);
#define ROW_MIXED_ALONG(name, R, dir)                                                   \
  void name(const void* in, void* out, zor_int dimension, zor_int first, zor_int count, \
            ZorDftDescriptor* head, int32_t* status, void* work);
#include "zor/tables/dft_nd.inc"
#undef ROW_REAL_2D
#undef ROW_SHARE
#undef ROW_SHARE_OUT
#undef ROW_SHARE_PACKED
#undef ROW_ALONG_SHARE

ZOR_END_C

#endif
