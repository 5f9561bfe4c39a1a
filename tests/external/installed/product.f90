! SPDX-License-Identifier: MIT
! A complex matrix product and a dot product from Fortran.
program product
  use, intrinsic :: iso_c_binding
  implicit none
  interface
    subroutine zgemm(transa, transb, m, n, k, alpha, a, lda, b, ldb, beta, c, ldc) bind(c, name="zor_blas_zgemm")
      import
      character(kind=c_char), intent(in) :: transa, transb
      integer(c_int64_t), intent(in) :: m, n, k, lda, ldb, ldc
      complex(c_double_complex), intent(in) :: alpha, beta, a(lda, *), b(ldb, *)
      complex(c_double_complex), intent(inout) :: c(ldc, *)
    end subroutine
    function ddot(n, x, incx, y, incy) bind(c, name="zor_blas_ddot")
      import
      integer(c_int64_t), intent(in) :: n, incx, incy
      real(c_double), intent(in) :: x(*), y(*)
      real(c_double) :: ddot
    end function
  end interface
  integer(c_int64_t), parameter :: n = 2, one = 1
  complex(c_double_complex) :: a(2, 2), b(2, 2), c(2, 2)
  real(c_double) :: x(2) = [1d0, 2d0]
  a = reshape([(1d0, 2d0), (0d0, 1d0), (3d0, 0d0), (2d0, -1d0)], [2, 2])
  b = reshape([(1d0, 0d0), (0d0, -1d0), (2d0, 2d0), (1d0, 1d0)], [2, 2])
  call zgemm('N', 'C', n, n, n, (1d0, 0d0), a, n, b, n, (0d0, 0d0), c, n)
  if (any(c /= matmul(a, conjg(transpose(b))))) error stop "zgemm"
  if (ddot(n, x, one, x, one) /= 5d0) error stop "ddot"
  print '(a)', 'fortran agrees'
end program
