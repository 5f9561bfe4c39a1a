# Identities of linear algebra in R, on matrices of 200 rows, each to a bound of rounding errors.
n <- 200
i <- row(matrix(0, n, n)); j <- col(i)
a <- ((i * 7919 + j * 104729 + i * j * 31) %% 2003 - 1001) / 1024 + 40 * diag(n)
s <- crossprod(a) / n + diag(n)
close <- function(x, y) max(Mod(x - y)) <= 1e-9 * max(1, Mod(y))
e <- eigen(s); v <- svd(a); q <- qr(a); z <- eigen(a)
checks <- c(
  crossprod = close(crossprod(a), t(a) %*% a), tcrossprod = close(tcrossprod(a), a %*% t(a)),
  solve = close(a %*% solve(a), diag(n)), chol = close(crossprod(chol(s)), s), chol2inv = close(chol2inv(chol(s)) %*% s, diag(n)),
  eigen = close(e$vectors %*% (e$values * t(e$vectors)), s), svd = close(v$u %*% (v$d * t(v$v)), a),
  qr = close(qr.Q(q) %*% qr.R(q), a[, q$pivot]), det = close(sum(log(abs(v$d))), as.numeric(determinant(a)$modulus)),
  general = close(a %*% z$vectors, z$vectors %*% diag(z$values)), backsolve = close(chol(s) %*% backsolve(chol(s), a), a),
  complex = close((a + 1i * t(a)) %*% solve(a + 1i * t(a)), diag(n)), kappa = is.finite(kappa(s, exact = TRUE)))
cat(sum(checks), "passed", sum(!checks), "failed\n")
