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

constexpr int kCases = 300;
constexpr double kTol = 2e-5;  // relative error per unit of condition number

Md ToEigen(const CMatrix& m)
{
    Md r(m.GetRowSize(), m.GetColSize());
    for (int i = 0; i < r.size(); i++)
        r(i / r.cols(), i % r.cols()) = m.m_pData[i];
    return r;
}

Vd ToEigen(const CVector& v) { return Eigen::Map<const Eigen::VectorXf>(v.m_pData, v.GetSize()).cast<double>(); }

CMatrix ToMatrix(const Md& m)
{
    CMatrix r(static_cast<int>(m.rows()), static_cast<int>(m.cols()));
    for (int i = 0; i < m.size(); i++)
        r.m_pData[i] = static_cast<float>(m(i / m.cols(), i % m.cols()));
    return r;
}

CVector ToVector(const Vd& v)
{
    CVector r(static_cast<int>(v.size()));
    Eigen::Map<Eigen::VectorXf>(r.m_pData, v.size()) = v.cast<float>();
    return r;
}

double RelErr(const Md& got, const Md& ref) { return (got - ref).norm() / std::max(ref.norm(), 1e-30); }

double Cond(const Md& a)
{
    Vd s = Eigen::JacobiSVD<Md>(a).singularValues();
    return s(0) / s(s.size() - 1);
}

class LinalgVsEigen : public testing::Test {
protected:
    std::mt19937 rng{0x5eed};

    Md Uniform(int rows, int cols)
    {
        std::uniform_real_distribution<double> u(-1.0, 1.0);
        return Md::NullaryExpr(rows, cols, [&]() { return u(rng); });
    }
    Md Orthogonal(int n) { return Eigen::HouseholderQR<Md>(Uniform(n, n)).householderQ(); }

    // Q1 diag(s) Q2^T, s in [1, 10]: condition at most 10 and no diagonal
    // dominance, so pivoting is exercised. Rounded to float so that both
    // sides see the same input.
    Md WellConditioned(int rows, int cols)
    {
        std::uniform_real_distribution<double> s(1.0, 10.0);
        Md d = Md::Zero(rows, cols);
        for (int i = 0; i < std::min(rows, cols); i++)
            d(i, i) = s(rng);
        return ToEigen(ToMatrix(Orthogonal(rows) * d * Orthogonal(cols).transpose()));
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
        Md a = WellConditioned(n, n);
        Vd b = ToEigen(ToVector(Uniform(n, 1).col(0)));
        Md inv = a.inverse();
        Vd ref = a.partialPivLu().solve(b);
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
        Md a = ToEigen(ToMatrix(Uniform(rows, cols)));
        CMatrix u = ToMatrix(a), v(cols, cols), holder;
        CVector w(cols);
        ASSERT_EQ(holder.SingularValueDecomposition(u, w, v), RESULT_NO_ERROR);
        Md U = ToEigen(u), V = ToEigen(v), I = Md::Identity(cols, cols);
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
        Vd b = ToEigen(ToVector(Uniform(rows, 1).col(0)));
        double tol = kTol * Cond(a) * Cond(a);  // least squares goes with cond^2
        CMatrix m = ToMatrix(a);
        CMatrix pinv = m.SVDInverse();
        ASSERT_EQ(m.m_nResult, RESULT_NO_ERROR);
        EXPECT_LT(RelErr(ToEigen(pinv), a.completeOrthogonalDecomposition().pseudoInverse()), tol)
            << rows << "x" << cols;
        CVector rhs = ToVector(b);
        EXPECT_LT(RelErr(ToEigen(m.SoluteEquation(rhs)), a.colPivHouseholderQr().solve(b)), tol);
    });
}

TEST_F(LinalgVsEigen, JacobiSymmetricEigenpairs)
{
    ForShapes([&](int, int n) {
        Md q = Orthogonal(n);
        Md s = q * (5.0 * Uniform(n, 1).col(0)).asDiagonal() * q.transpose();
        s = ToEigen(ToMatrix((0.5 * (s + s.transpose())).eval()));
        CMatrix a = ToMatrix(s), v(n, n);
        CVector d(n);
        ASSERT_EQ(CMatrix::Jacobi(a, d, v), 1) << n;
        Md V = ToEigen(v);
        Vd D = ToEigen(d);
        double scale = std::max(s.norm(), 1.0);
        EXPECT_LT((s * V - V * D.asDiagonal()).norm() / scale, kTol) << n;
        EXPECT_LT((V.transpose() * V - Md::Identity(n, n)).norm(), kTol);
        Vd ref = Eigen::SelfAdjointEigenSolver<Md>(s).eigenvalues().reverse();
        EXPECT_LT((D - ref).norm() / scale, kTol);  // also checks the descending order
        for (int j = 0; j < n; j++)
            EXPECT_GE(2 * (V.col(j).array() >= 0.0).count(), n);
    });
}

}  // namespace

#endif
