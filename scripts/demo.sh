#!/usr/bin/env bash
# From a fresh machine to the bits of a matrix product: sets up, builds, multiplies the two matrices of examples/ and
# compares the digest of the product with the kept one, solves a sparse system, then compares the digests of every
# routine.
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/setup.sh
scripts/build.sh here

product=$(mktemp -d)
trap 'rm -rf "$product"' EXIT
report=$(build/bin/zor matmul examples/readings.mtx examples/stiffness.mtx -o "$product/product.mtx")
echo "$report"
digest=$(awk '$1 == "sha256" {print $2}' <<<"$report")
kept=$(cut -d' ' -f1 examples/product.sha256)
if [ "$digest" != "$kept" ]; then
  echo "demo: the product's digest is not the kept $kept" >&2
  exit 1
fi
echo "the product has the kept digest"
build/bin/zor solve examples/laplacian.mtx --preconditioner gauss-seidel --every 20
build/bin/zor verify
