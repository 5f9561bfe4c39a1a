% Octave's own tests of its linear algebra: passed and run.
names = {"balance", "chol", "cond", "cross", "det", "dot", "eig", "expm", "givens", "gls", "gsvd", "hess", "housh", "inv", ...
         "kron", "krylov", "linsolve", "logm", "lscov", "lu", "mgorth", "norm", "null", "ols", "ordeig", "ordschur", "orth", ...
         "pinv", "planerot", "qr", "qz", "qzhess", "rank", "rcond", "rref", "schur", "sqrtm", "subspace", "svd", "sylvester", ...
         "trace", "vecnorm", "lsqnonneg", "glpk", "sqp", "interp1", "polyfit", "conv2", "filter", "lsode", "quadgk"};
passed = total = 0;
for k = 1:numel (names)
  try
    [p, t] = test (names{k}, "quiet", stderr);
    passed += p;
    total += t;
  catch
  end
end
printf ("%d passed %d failed\n", passed, total - passed);
