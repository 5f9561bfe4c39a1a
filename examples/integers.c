/* SPDX-License-Identifier: MIT
 * A message through RSA and back, and a factor of 2^67 - 1 by Pollard's rho method. */
#include <stdio.h>
#include <string.h>
#include <zor/gmp.h>

/* A prime of that many bits. */
static void random_prime(zor_mpz_ptr p, zor_rand_ptr state, zor_bitcnt bits) {
  ZOR_MPZ(urandomb)(p, state, bits);
  ZOR_MPZ(setbit)(p, bits - 1);
  ZOR_MPZ(nextprime)(p, p);
}

static int rsa_round_trip(const char* message) {
  zor_mpz_t p, q, n, e, d, lambda, clear, cipher;
  zor_mpz_ptr all[] = {p, q, n, e, d, lambda, clear, cipher};
  zor_rand_t state;
  for (int i = 0; i < 8; ++i) ZOR_MPZ(init)(all[i]);

  /* A fixed seed makes the example repeatable; a real key needs one that nobody can guess. */
  zor_gmp___gmp_randinit_default(state);
  zor_gmp___gmp_randseed_ui(state, 2024);
  ZOR_MPZ(set_ui)(e, 65537);
  do {
    random_prime(p, state, 1024);
    random_prime(q, state, 1024);
    ZOR_MPZ(mul)(n, p, q);
    ZOR_MPZ(sub_ui)(p, p, 1);
    ZOR_MPZ(sub_ui)(q, q, 1);
    ZOR_MPZ(lcm)(lambda, p, q);
  } while (!ZOR_MPZ(invert)(d, e, lambda));

  /* Text is a number of as many bytes, the highest first. */
  ZOR_MPZ(import)(clear, strlen(message), 1, 1, 0, 0, message);
  ZOR_MPZ(powm_ui)(cipher, clear, 65537, n);
  printf("key of %zu bits, cipher text of %zu\n", ZOR_MPZ(sizeinbase)(n, 2), ZOR_MPZ(sizeinbase)(cipher, 2));
  ZOR_MPZ(set_ui)(clear, 0);
  zor_gmp_mpz_powm_mary(clear, cipher, d, n);
  char text[257] = ""; /* as many bytes as the key has, and the end */
  ZOR_MPZ(export)(text, NULL, 1, 1, 0, 0, clear);
  printf("decrypted: %s\n", text);

  zor_gmp___gmp_randclear(state);
  for (int i = 0; i < 8; ++i) ZOR_MPZ(clear)(all[i]);
  return strcmp(text, message);
}

/* x := x^2 + 1 modulo n. */
static void rho_step(zor_mpz_ptr x, zor_mpz_srcptr n) {
  ZOR_MPZ(mul)(x, x, x);
  ZOR_MPZ(add_ui)(x, x, 1);
  ZOR_MPZ(tdiv_r)(x, x, n);
}

/* f := a factor of n. One sequence runs at twice the speed of the other; they meet modulo a factor first. */
static void pollard_rho(zor_mpz_ptr f, zor_mpz_srcptr n) {
  zor_mpz_t slow, fast, distance;
  ZOR_MPZ(init_set_ui)(slow, 2);
  ZOR_MPZ(init_set_ui)(fast, 2);
  ZOR_MPZ(init)(distance);
  do {
    rho_step(slow, n);
    rho_step(fast, n);
    rho_step(fast, n);
    ZOR_MPZ(sub)(distance, fast, slow);
    ZOR_MPZ(gcd)(f, distance, n);
  } while (ZOR_MPZ(cmp_ui)(f, 1) == 0);
  ZOR_MPZ(clear)(slow);
  ZOR_MPZ(clear)(fast);
  ZOR_MPZ(clear)(distance);
}

int main(void) {
  int status = rsa_round_trip("the same bits on every processor");

  zor_mpz_t n, f, g;
  ZOR_MPZ(init_set_str)(n, "147573952589676412927", 10);
  ZOR_MPZ(init)(f);
  ZOR_MPZ(init)(g);
  pollard_rho(f, n);
  ZOR_MPZ(divexact)(g, n, f);
  zor_gmp___gmp_fprintf(stdout, "%Zd = %Zd * %Zd\n", n, f, g);
  ZOR_MPZ(clear)(n);
  ZOR_MPZ(clear)(f);
  ZOR_MPZ(clear)(g);
  return status;
}
