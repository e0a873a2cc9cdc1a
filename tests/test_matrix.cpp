// Hosts may build with NDEBUG; the inline row check must survive it.
#define NDEBUG
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <initializer_list>

#include "math/Matrix.h"

namespace {

using List = std::initializer_list<float>;

template <class T, class... Size>
T Fill(List v, Size... size)
{
    T r(size...);
    std::copy(v.begin(), v.end(), r.m_pData);
    return r;
}
CMatrix Make(int rows, int cols, List v) { return Fill<CMatrix>(v, rows, cols); }
CVector Vec(List v) { return Fill<CVector>(v, static_cast<int>(v.size())); }

// Numeric comparison within tol (so -0.0 matches 0), with a dump on failure.
testing::AssertionResult Is(const CMatrix& m, int rows, int cols, List v, float tol = 0)
{
    auto close = [tol](float a, float b) { return std::fabs(a - b) <= tol; };
    if (m.GetRowSize() == rows && m.GetColSize() == cols && std::equal(v.begin(), v.end(), m.m_pData, close))
        return testing::AssertionSuccess();
    auto r = testing::AssertionFailure() << m.GetRowSize() << "x" << m.GetColSize() << ":";
    for (int i = 0; i < m.GetRowSize() * m.GetColSize(); i++)
        r << " " << m.m_pData[i];
    return r;
}

TEST(MatrixCore, SizeAssignmentAndBytewiseEquality)
{
    CMatrix m(0, 5);
    EXPECT_EQ(m.GetRowSize() + m.GetColSize() + m.GetType(), 0);
    m.SetSize(5, 0);
    EXPECT_EQ(m.GetRowSize() + m.GetColSize() + m.GetType(), 0);
    EXPECT_EQ(m.m_pData, nullptr);
    m = 0.0f;  // empty: no abort
    m.SetSize(3, 3);
    EXPECT_EQ(m.GetType(), MATRIX_SQARE);
    m.SetSize(3, 4);
    EXPECT_EQ(m.GetType(), 0);
    EXPECT_EQ(m.m_ppRow[2], m.m_pData + 8);

    m = Make(2, 2, {1, 2, 3, 4});
    m = -0.0f;  // cleared bytewise: +0.0
    EXPECT_TRUE(Is(m, 2, 2, {0, 0, 0, 0}));
    EXPECT_FALSE(std::signbit(m[1][1]));
    EXPECT_TRUE(CMatrix(2, 0) == CMatrix(0, 2));
    CMatrix a = Make(1, 2, {0.0f, NAN}), b(a);
    EXPECT_TRUE(a == b);  // same NaN bits
    b[0][0] = -0.0f;
    EXPECT_TRUE(a != b);
}

TEST(MatrixCore, ArithmeticAndProducts)
{
    CMatrix a = Make(2, 3, {1, 2, 3, 4, 5, 6});
    EXPECT_TRUE(Is(a.Transposed(), 3, 2, {1, 4, 2, 5, 3, 6}));
    EXPECT_TRUE(Is(a * a.Transposed(), 2, 2, {14, 32, 32, 77}));
    EXPECT_TRUE(Is((a + a) - a * 3.0f, 2, 3, {-1, -2, -3, -4, -5, -6}));
    EXPECT_TRUE(Is(-(a / 2.0f), 2, 3, {-0.5f, -1, -1.5f, -2, -2.5f, -3}));
    EXPECT_EQ(*(a * Vec({1, 0, -1}))[1], -2.0f);

    CMatrix s = Make(2, 2, {1, 2, 3, 4});
    EXPECT_TRUE(Is(s *= Make(2, 2, {0, 1, 1, 0}), 2, 2, {2, 1, 4, 3}));
    // 3 x 4 by 4 x 2: the result is 3 x 2 and sums only the first 2 terms.
    CMatrix r = Make(3, 4, {1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12});
    EXPECT_TRUE(Is(r *= Make(4, 2, {1, 1, 1, 1, 100, 100, 100, 100}), 3, 2, {3, 3, 11, 11, 19, 19}));
}

TEST(MatrixCoreDeath, AssertionTexts)
{
    CMatrix m(2, 3), e;
    CVector shortB(2);
    EXPECT_DEATH(m.SetSize(-1, 2), "rows >= 0");
    EXPECT_DEATH(m.SetSize(2, -1), "cols >= 0");
    EXPECT_DEATH(e.MakeZero(), "m_nRows > 0 && m_nCols > 0");
    EXPECT_DEATH(m.MakeUnit(), "m_nRows == m_nCols && m_nCols> 0");
    EXPECT_DEATH(m /= 0.0f, "dbl != 0");
    EXPECT_DEATH(m / 0.0f, "operator/=.*dbl != 0");
    EXPECT_DEATH(m[2], "Matrix\\.h:[0-9]+: .*operator\\[\\].*i < m_nRows && i >= 0");
    EXPECT_DEATH(m[-1], "i < m_nRows && i >= 0");
    EXPECT_DEATH(m.EqSum(m, CMatrix(3, 2)), "nRows == refmatrixB.GetRowSize\\(\\)");
    EXPECT_DEATH(m.EqDiff(CMatrix(2, 2), m), "EqDiff.*nCols == refmatrixA.GetColSize\\(\\)");
    EXPECT_DEATH(m * m, "nTerms == refmatrixB.GetRowSize\\(\\)");
    EXPECT_DEATH(m += e, "\\(GetRowSize\\(\\) == refmatrix.GetRowSize\\(\\)\\) && "
                         "\\(GetColSize\\(\\) == refmatrix.GetColSize\\(\\)\\)");
    EXPECT_DEATH(m -= e, "\\(m_nRows == refmatrix.GetRowSize\\(\\)\\) && ");
    EXPECT_DEATH(m *= m, "matrixT.GetColSize\\(\\) == refmatrix.GetRowSize\\(\\)");
    EXPECT_DEATH(m.Inversed(), "m_nType & MATRIX_SQARE");
    EXPECT_DEATH(m.Inverse(), "m_nRows == m_nCols");
    EXPECT_DEATH(e.Inverse(), "m_nType & MATRIX_SQARE");
    EXPECT_DEATH(e.GaussJordan(m, m), "A.GetType\\(\\) & MATRIX_SQARE");
    EXPECT_DEATH(Make(3, 2, {1, 0, 1, 1, 1, 2}).SoluteEquation(shortB),
                 "refmatrixA.GetColSize\\(\\) == refvectorB.GetSize\\(\\)");
}

TEST(MatrixSolve, InverseDeterminantAndStickyZeroRowFailure)
{
    CMatrix d = Make(3, 3, {2, 0, 0, 0, 4, 0, 0, 0, 8});
    EXPECT_TRUE(Is(d.Inversed(), 3, 3, {0.5f, 0, 0, 0, 0.25f, 0, 0, 0, 0.125f}));
    EXPECT_EQ(d.m_nResult, RESULT_NO_ERROR);
    EXPECT_EQ(Make(2, 2, {0, 1, 1, 0}).Determinant(), -1.0f);
    CMatrix tie = Make(2, 2, {1, 2, 2, 4});
    // Rows exchanged on the tie, pivot 2, zero second pivot nudged to 1e-20.
    EXPECT_EQ(tie.Determinant(), -1.0f * 2.0f * 1.0e-20f);
    EXPECT_EQ(tie.m_nResult, RESULT_NO_ERROR);

    CMatrix m = Make(2, 2, {4, 2, 0, 0});
    EXPECT_EQ(m.Inversed().GetRowSize(), 2);
    EXPECT_STREQ(m.m_szErrFunc, "LUDecomposition");
    EXPECT_STREQ(m.m_szResultMsg[m.m_nResult], "Singular Matrix!");
    EXPECT_EQ(CMatrix(m).m_nResult, RESULT_NO_ERROR);
    EXPECT_EQ(m.Determinant(), 0.0f);
    m[1][0] = m[1][1] = 2;
    EXPECT_TRUE(Is(m.Inversed(), 2, 2, {0.5f, -0.5f, -0.5f, 1}));
    CMatrix lu(m);
    int indx[2];
    float det;
    EXPECT_EQ(m.LUDecomposition(lu, indx, det), RESULT_SINGULAR);  // sticky
    EXPECT_TRUE(std::isinf(Make(1, 1, {0}).Inversed()[0][0]));  // no index past the single row
}

TEST(MatrixSolve, GaussJordan)
{
    CMatrix holder, a = Make(2, 2, {0, 2, 4, 0}), b = Make(2, 1, {2, 8});
    EXPECT_EQ(holder.GaussJordan(a, b), RESULT_NO_ERROR);
    EXPECT_TRUE(Is(a, 2, 2, {0, 0.25f, 0.5f, 0}));
    EXPECT_TRUE(Is(b, 2, 1, {2, 1}));
    a = Make(2, 2, {1, 2, 2, 4});
    EXPECT_EQ(holder.GaussJordan(a, b), RESULT_SINGULAR);
    EXPECT_STREQ(holder.m_szErrFunc, "GaussJordan");
}

TEST(MatrixSvd, DiagonalCasesKeepOrderAndSigns)
{
    struct { List in, w, u, v; } rows[] = {
        {{3, 0, 0, -2}, {3, 2}, {-1, 0, 0, -1}, {-1, 0, 0, 1}},
        {{1, 0, 0, 5}, {1, 5}, {-1, 0, 0, -1}, {-1, 0, 0, -1}},
    };
    for (const auto& row : rows) {
        CMatrix holder, a = Make(2, 2, row.in), v(2, 2);
        CVector w(2);
        EXPECT_EQ(holder.SingularValueDecomposition(a, w, v), RESULT_NO_ERROR);
        EXPECT_TRUE(w == Vec(row.w));
        EXPECT_TRUE(Is(a, 2, 2, row.u));
        EXPECT_TRUE(Is(v, 2, 2, row.v));
    }
}

TEST(MatrixSvd, PseudoInverseLeastSquaresAndNonConvergence)
{
    EXPECT_TRUE(Is(Make(2, 2, {4, 1, 2, 3}).SVDInverse(), 2, 2, {0.3f, -0.1f, -0.2f, 0.4f}, 1e-6f));
    CMatrix bad = Make(2, 2, {1, 0, 0, 0}).SVDInverse();  // no truncation
    EXPECT_FALSE(std::isfinite(bad[0][0] + bad[0][1] + bad[1][0] + bad[1][1]));

    // y = c0 + c1 x through (0, 1), (1, 2), (2, 4): c = (5/6, 3/2).
    CVector b = Vec({1, 2, 4}), x = Make(3, 2, {1, 0, 1, 1, 1, 2}).SoluteEquation(b);
    ASSERT_EQ(x.GetSize(), 2);
    EXPECT_NEAR(*x[0], 5.0f / 6.0f, 1e-5);
    EXPECT_NEAR(*x[1], 1.5f, 1e-5);

    CMatrix m = Make(2, 2, {NAN, 1, 1, 1});
    EXPECT_EQ(m.SVDInverse().GetRowSize(), 0);
    EXPECT_STREQ(m.m_szErrFunc, "SingularVlueDecomposition");
    EXPECT_STREQ(m.m_szResultMsg[m.m_nResult], "No convergence in 30 SVD iterations");
    m[0][0] = 1;
    b = Vec({1, 1});
    EXPECT_EQ(m.SoluteEquation(b).GetSize(), 0);
}

TEST(MatrixJacobi, RotationSortAndOrientation)
{
    const float r = 0.70710677f;
    struct { int n; List a, d, v; } rows[] = {
        {2, {2, 1, 1, 2}, {3, 1}, {r, r, r, -r}},
        {3, {1, 0, 0, 0, 3, 0, 0, 0, 2}, {3, 2, 1}, {0, 0, 1, 1, 0, 0, 0, 1, 0}},
        {1, {-7}, {-7}, {1}},
    };
    for (const auto& row : rows) {
        CMatrix a = Make(row.n, row.n, row.a), v(row.n, row.n);
        CVector d(row.n);
        ASSERT_EQ(CMatrix::Jacobi(a, d, v), 1) << row.n;
        EXPECT_TRUE(d == Vec(row.d)) << row.n;
        EXPECT_TRUE(Is(v, row.n, row.n, row.v)) << row.n;
    }
}

TEST(MatrixScalar, Utilities)
{
    CMatrix m;
    EXPECT_EQ(m.pythag(3, -4), 5.0f);
    EXPECT_EQ(m.pythag(0, 0), 0.0f);
    // Root and product in double: an all-single path gives 6.08276224.
    EXPECT_EQ(m.pythag(6, 1), 6.08276272f);
    EXPECT_EQ(m.sign(2, -0.0f), 2.0f);
    EXPECT_EQ(m.sign(2, NAN), -2.0f);
    EXPECT_TRUE(std::isnan(m.Max(1, NAN)));
}

}  // namespace
