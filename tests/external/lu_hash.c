/* LU factors of a matrix of order 500 by ScaLAPACK on a grid of one row of processes, in blocks of 64 columns; rank 0 prints
 * a digest (FNV-1a, 64 bits) of every rank's part. */
#include <mpi.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>

void Cblacs_get(int, int, int*);
void Cblacs_gridinit(int*, const char*, int, int);
int numroc_(const int*, const int*, const int*, const int*, const int*);
void descinit_(int*, const int*, const int*, const int*, const int*, const int*, const int*, const int*, const int*, int*);
void pdgetrf_(const int*, const int*, double*, const int*, const int*, const int*, int*, int*);

int main(int argc, char** argv) {
  MPI_Init(&argc, &argv);
  int rank, size, context;
  MPI_Comm_rank(MPI_COMM_WORLD, &rank);
  MPI_Comm_size(MPI_COMM_WORLD, &size);
  Cblacs_get(-1, 0, &context);
  Cblacs_gridinit(&context, "R", 1, size);

  const int n = 500, block = 64, zero = 0, one = 1;
  const int columns = numroc_(&n, &block, &rank, &zero, &size);
  double* a = malloc(sizeof(double) * n * (columns + 1));
  int* pivots = malloc(sizeof(int) * (n + block));
  for (int local = 0; local < columns; ++local) {
    const long j = (local / block * size + rank) * (long)block + local % block;
    for (long i = 0; i < n; ++i)
      a[i + (long)local * n] = (double)((i * 7919 + j * 104729 + i * j * 31) % 2003 - 1001) / 1024 + (i == j ? 40 : 0);
  }
  int description[9], info;
  descinit_(description, &n, &n, &block, &block, &zero, &zero, &context, &n, &info);
  pdgetrf_(&n, &n, a, &one, &one, description, pivots, &info);

  uint64_t digest = 14695981039346656037u;
  for (size_t i = 0; i < sizeof(double) * n * columns; ++i) digest = (digest ^ ((unsigned char*)a)[i]) * 1099511628211u;
  uint64_t* all = malloc(sizeof(uint64_t) * size);
  MPI_Gather(&digest, 1, MPI_UINT64_T, all, 1, MPI_UINT64_T, 0, MPI_COMM_WORLD);
  if (rank == 0) {
    printf("info %d digest", info);
    for (int i = 0; i < size; ++i) printf(" %016llx", (unsigned long long)all[i]);
    printf("\n");
  }
  MPI_Finalize();
  return 0;
}
