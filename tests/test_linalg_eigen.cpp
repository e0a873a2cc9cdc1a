// Accuracy of the single-precision solvers against a double-precision
// reference on random, well-conditioned inputs up to 8 x 8.
#include <gtest/gtest.h>

#ifndef SV_HAVE_EIGEN
TEST(LinalgVsEigen, Skipped) { GTEST_SKIP() << "Eigen not available"; }
#else

#include <Eigen/Dense>

#include <algorithm>
#include <functional>
#include <random>

#include "math/Matrix.h"

namespace {

using Md = Eigen::MatrixXd;
using Vd = Eigen::VectorXd;
using Mf = Eigen::Matrix<float, Eigen::Dynamic, Eigen::Dynamic, Eigen::RowMajor>;

constexpr int kCases = 300;
constexpr double kTol = 2e-5;  // relative error per unit of condition number

Md ToEigen(const float* p, int rows, int cols) { return Eigen::Map<const Mf>(p, rows, cols).cast<double>(); }
Md ToEigen(const CMatrix& m) { return ToEigen(m.m_pData, m.GetRowSize(), m.GetColSize()); }
Md ToEigen(const CVector& v) { return ToEigen(v.m_pData, v.GetSize(), 1); }

// Both sides must see the same input, so references start from float values.
Md Rounded(const Md& m) { return m.cast<float>().cast<double>(); }

template <class T>
T Filled(T r, const Md& m)
{
    Eigen::Map<Mf>(r.m_pData, m.rows(), m.cols()) = m.cast<float>();
    return r;
}
CMatrix ToMatrix(const Md& m) { return Filled(CMatrix(int(m.rows()), int(m.cols())), m); }
CVector ToVector(const Vd& v) { return Filled(CVector(int(v.size())), v); }

double RelErr(const Md& got, const Md& ref) { return (got - ref).norm() / std::max(ref.norm(), 1e-30); }

double Cond(const Md& a)
{
    Vd s = Eigen::JacobiSVD<Md>(a).singularValues();
    return s(0) / s(s.size() - 1);
}

class LinalgVsEigen : public testing::Test {
protected:
    std::mt19937 rng{0x5eed};

    double Draw(double lo, double hi) { return std::uniform_real_distribution<double>(lo, hi)(rng); }
    Md Uniform(int rows, int cols) { return Md::NullaryExpr(rows, cols, [&]() { return Draw(-1, 1); }); }
    Md Orthogonal(int n) { return Eigen::HouseholderQR<Md>(Uniform(n, n)).householderQ(); }

    // Q1 diag(s) Q2^T, s in [1, 10]: condition at most 10 and no diagonal
    // dominance, so pivoting is exercised.
    Md WellConditioned(int rows, int cols)
    {
        Md d = Md::Zero(rows, cols);
        for (int i = 0; i < std::min(rows, cols); i++)
            d(i, i) = Draw(1, 10);
        return Rounded(Orthogonal(rows) * d * Orthogonal(cols).transpose());
    }

    // check(rows, cols) over kCases shapes with 8 >= rows >= cols >= 1.
    void ForShapes(const std::function<void(int, int)>& check)
    {
        for (int c = 0; c < kCases; c++) {
            int cols = std::uniform_int_distribution<int>(1, 8)(rng);
            check(std::uniform_int_distribution<int>(cols, 8)(rng), cols);
        }
    }
};

TEST_F(LinalgVsEigen, InverseDeterminantAndSolves)
{
    ForShapes([&](int, int n) {
        Md a = WellConditioned(n, n), inv = a.inverse();
        Vd b = Rounded(Uniform(n, 1)), ref = a.partialPivLu().solve(b);
        double tol = kTol * Cond(a);
        CMatrix m = ToMatrix(a), lu(m), ga(m), gb = ToMatrix(b);
        EXPECT_LT(RelErr(ToEigen(m.Inversed()), inv), tol) << n;
        EXPECT_LT(std::fabs(m.Determinant() / a.determinant() - 1.0), tol) << n;

        std::vector<int> indx(n);
        float d;
        CVector x = ToVector(b);
        m.LUDecomposition(lu, indx.data(), d);
        m.LUBackstitution(lu, indx.data(), x);
        EXPECT_LT(RelErr(ToEigen(x), ref), tol) << n;

        EXPECT_EQ(m.GaussJordan(ga, gb), RESULT_NO_ERROR);
        EXPECT_LT(RelErr(ToEigen(ga), inv), tol) << n;
        EXPECT_LT(RelErr(ToEigen(gb), ref), tol) << n;
    });
}

TEST_F(LinalgVsEigen, SvdReconstructsWithOrthonormalFactors)
{
    ForShapes([&](int rows, int cols) {
        Md a = Rounded(Uniform(rows, cols)), I = Md::Identity(cols, cols);
        CMatrix u = ToMatrix(a), v(cols, cols), holder;
        CVector w(cols);
        ASSERT_EQ(holder.SingularValueDecomposition(u, w, v), RESULT_NO_ERROR);
        Md U = ToEigen(u), V = ToEigen(v);
        Vd W = ToEigen(w);
        EXPECT_LT(RelErr(U * W.asDiagonal() * V.transpose(), a), kTol) << rows << "x" << cols;
        EXPECT_LT((U.transpose() * U - I).norm(), kTol);
        EXPECT_LT((V.transpose() * V - I).norm(), kTol);
        EXPECT_GE(W.minCoeff(), 0.0);
        std::sort(W.data(), W.data() + W.size(), std::greater<double>());
        EXPECT_LT(RelErr(W, Eigen::JacobiSVD<Md>(a).singularValues()), kTol);
    });
}

TEST_F(LinalgVsEigen, PseudoInverseAndLeastSquares)
{
    ForShapes([&](int rows, int cols) {
        Md a = WellConditioned(rows, cols);
        Vd b = Rounded(Uniform(rows, 1));
        double tol = kTol * Cond(a) * Cond(a);  // least squares goes with cond^2
        CMatrix m = ToMatrix(a), pinv = m.SVDInverse();
        CVector rhs = ToVector(b);
        ASSERT_EQ(m.m_nResult, RESULT_NO_ERROR);
        EXPECT_LT(RelErr(ToEigen(pinv), a.completeOrthogonalDecomposition().pseudoInverse()), tol)
            << rows << "x" << cols;
        EXPECT_LT(RelErr(ToEigen(m.SoluteEquation(rhs)), a.colPivHouseholderQr().solve(b)), tol);
    });
}

TEST_F(LinalgVsEigen, JacobiSymmetricEigenpairs)
{
    ForShapes([&](int, int n) {
        Md q = Orthogonal(n), s = q * (5.0 * Uniform(n, 1).col(0)).asDiagonal() * q.transpose();
        s = Rounded(0.5 * (s + s.transpose()));
        CMatrix a = ToMatrix(s), v(n, n);
        CVector d(n);
        ASSERT_EQ(CMatrix::Jacobi(a, d, v), 1) << n;
        Md V = ToEigen(v);
        Vd D = ToEigen(d), ref = Eigen::SelfAdjointEigenSolver<Md>(s).eigenvalues().reverse();
        double scale = std::max(s.norm(), 1.0);
        EXPECT_LT((s * V - V * D.asDiagonal()).norm() / scale, kTol) << n;
        EXPECT_LT((V.transpose() * V - Md::Identity(n, n)).norm(), kTol);
        EXPECT_LT((D - ref).norm() / scale, kTol);  // also checks the descending order
        for (int j = 0; j < n; j++)
            EXPECT_GE(2 * (V.col(j).array() >= 0.0).count(), n);
    });
}

}  // namespace

#endif
