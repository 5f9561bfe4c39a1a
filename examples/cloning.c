/* SPDX-License-Identifier: MIT
 * Seamless cloning: a boat from one picture into another without a seam. The pasted part keeps its own
 * differences from pixel to pixel, so what is added to it has no Laplacian, and on the edge it is the
 * difference of the two pictures (Perez, Gangnet and Blake, 2003).
 *
 *   cloning lake.pgm boat.pgm 60 50 joined.pgm */
#include <stdio.h>
#include <stdlib.h>

#include "zor/poisson.h"

typedef struct {
  int width, height;
  unsigned char* pixels;
} image;

static int read_image(const char* name, image* m) {
  FILE* file = fopen(name, "rb");
  int white = 0;
  if (file == NULL) return 0;
  const int good = fscanf(file, "P5 %d %d %d", &m->width, &m->height, &white) == 3 && white == 255 &&
                   m->width > 2 && m->height > 2 && m->width < 20000 && m->height < 20000 &&
                   fgetc(file) != EOF;
  const size_t count = good ? (size_t)m->width * (size_t)m->height : 0;
  m->pixels = malloc(count + 1);
  const int whole = good && m->pixels != NULL && fread(m->pixels, 1, count, file) == count;
  fclose(file);
  return whole;
}

int main(int argc, char** argv) {
  image to, part;
  if (argc != 6 || !read_image(argv[1], &to) || !read_image(argv[2], &part)) {
    fprintf(stderr, "usage: cloning PICTURE PART X Y RESULT, images being PGM of 8 bits\n");
    return 2;
  }
  const int x = atoi(argv[3]), y = atoi(argv[4]), w = part.width, h = part.height;
  if (x < 0 || y < 0 || x + w > to.width || y + h > to.height) {
    fprintf(stderr, "the part does not fit there\n");
    return 2;
  }
  /* All sides have given values: the difference of the pictures there. A layer of f is a line of the image.
   */
  zor_poisson_box box = {2, {w - 1, h - 1}, {w - 1, h - 1}, {0}, 0.0};
  zor_poisson* problem = NULL;
  float* u = calloc((size_t)w * (size_t)h, sizeof *u);
  float* edge[4] = {calloc((size_t)h, sizeof *u), calloc((size_t)h, sizeof *u), calloc((size_t)w, sizeof *u),
                    calloc((size_t)w, sizeof *u)};
  if (u == NULL || edge[0] == NULL || edge[1] == NULL || edge[2] == NULL || edge[3] == NULL) return 1;
  for (int j = 0; j < h; ++j)
    for (int i = 0; i < w; ++i) {
      const float difference = (float)to.pixels[x + i + (y + j) * to.width] - (float)part.pixels[i + j * w];
      if (i == 0) edge[0][j] = difference;
      if (i == w - 1) edge[1][j] = difference;
      if (j == 0) edge[2][i] = difference;
      if (j == h - 1) edge[3][i] = difference;
    }
  zor_int status = zor_poisson_create_s(&problem, &box);
  if (status == ZOR_POISSON_OK) status = zor_poisson_solve_s(problem, u, (const float* const*)edge);
  if (status != ZOR_POISSON_OK) {
    fprintf(stderr, "%s\n", zor_poisson_text(status));
    return 1;
  }
  zor_poisson_free(&problem);
  for (int j = 0; j < h; ++j)
    for (int i = 0; i < w; ++i) {
      const float v = (float)part.pixels[i + j * w] + u[i + j * w];
      to.pixels[x + i + (y + j) * to.width] = (unsigned char)(v < 0 ? 0 : v > 255 ? 255 : v + 0.5f);
    }
  FILE* out = fopen(argv[5], "wb");
  if (out == NULL) return 1;
  fprintf(out, "P5\n%d %d\n255\n", to.width, to.height);
  fwrite(to.pixels, 1, (size_t)to.width * (size_t)to.height, out);
  if (fclose(out) != 0) return 1;
  printf("a pixel inside: %d, beside the edge: %d and %d\n", to.pixels[x + w / 2 + (y + h / 2) * to.width],
         to.pixels[x + (y + h / 2) * to.width], to.pixels[x + 1 + (y + h / 2) * to.width]);
  for (int s = 0; s < 4; ++s) free(edge[s]);
  free(u);
  free(to.pixels);
  free(part.pixels);
  return 0;
}
