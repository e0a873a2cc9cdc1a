// Hosts may build with NDEBUG; the inline row check must survive it.
#define NDEBUG
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <initializer_list>

#include "math/Matrix.h"

namespace {

CMatrix Make(int rows, int cols, std::initializer_list<float> v)
{
    CMatrix m(rows, cols);
    std::copy(v.begin(), v.end(), m.m_pData);
    return m;
}

// Exact numeric equality (so -0.0 matches 0), with a dump on failure.
testing::AssertionResult Is(const CMatrix& m, int rows, int cols, std::initializer_list<float> v)
{
    if (m.GetRowSize() == rows && m.GetColSize() == cols
        && std::equal(v.begin(), v.end(), m.m_pData))
        return testing::AssertionSuccess();
    auto r = testing::AssertionFailure() << m.GetRowSize() << "x" << m.GetColSize() << ":";
    for (int i = 0; i < m.GetRowSize() * m.GetColSize(); i++)
        r << " " << m.m_pData[i];
    return r;
}

CVector Vec(std::initializer_list<float> v)
{
    CVector r(static_cast<int>(v.size()));
    std::copy(v.begin(), v.end(), r.m_pData);
    return r;
}

TEST(MatrixCore, SetSizeEmptiesOnZeroAndTracksSquare)
{
    CMatrix m(0, 5);
    EXPECT_EQ(m.GetRowSize() + m.GetColSize() + m.GetType(), 0);
    m.SetSize(5, 0);
    EXPECT_EQ(m.GetRowSize() + m.GetColSize() + m.GetType(), 0);
    EXPECT_EQ(m.m_pData, nullptr);
    m.SetSize(3, 3);
    EXPECT_EQ(m.GetType(), MATRIX_SQARE);
    m.SetSize(3, 4);
    EXPECT_EQ(m.GetType(), 0);
    EXPECT_EQ(m.m_ppRow[2], m.m_pData + 8);
}

TEST(MatrixCore, AssignmentAndBytewiseEquality)
{
    CMatrix m = Make(2, 2, {1, 2, 3, 4});
    m = -0.0f;  // cleared bytewise: +0.0
    EXPECT_TRUE(Is(m, 2, 2, {0, 0, 0, 0}));
    EXPECT_FALSE(std::signbit(m[1][1]));
    CMatrix empty;
    empty = 0.0f;  // no abort
    EXPECT_TRUE(CMatrix(2, 0) == CMatrix(0, 2));
    CMatrix a = Make(1, 2, {0.0f, NAN}), b(a);
    EXPECT_TRUE(a == b);  // same NaN bits
    b[0][0] = -0.0f;
    EXPECT_TRUE(a != b);
}

TEST(MatrixCore, ArithmeticAndProducts)
{
    CMatrix a = Make(2, 3, {1, 2, 3, 4, 5, 6});
    CMatrix t = a.Transposed();
    EXPECT_TRUE(Is(t, 3, 2, {1, 4, 2, 5, 3, 6}));
    EXPECT_TRUE(Is(a * t, 2, 2, {14, 32, 32, 77}));
    EXPECT_TRUE(Is((a + a) - a * 3.0f, 2, 3, {-1, -2, -3, -4, -5, -6}));
    EXPECT_TRUE(Is(-(a / 2.0f), 2, 3, {-0.5f, -1, -1.5f, -2, -2.5f, -3}));
    CVector v = a * Vec({1, 0, -1});
    EXPECT_EQ(*v[1], -2.0f);

    CMatrix s = Make(2, 2, {1, 2, 3, 4});
    s *= Make(2, 2, {0, 1, 1, 0});
    EXPECT_TRUE(Is(s, 2, 2, {2, 1, 4, 3}));
    // 3 x 4 by 4 x 2: the result is 3 x 2 and sums only the first 2 terms.
    CMatrix r = Make(3, 4, {1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12});
    r *= Make(4, 2, {1, 1, 1, 1, 100, 100, 100, 100});
    EXPECT_TRUE(Is(r, 3, 2, {3, 3, 11, 11, 19, 19}));
}

TEST(MatrixCoreDeath, AssertionTexts)
{
    CMatrix m(2, 3), e;
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
}

TEST(MatrixSolve, InverseAndStickyZeroRowFailure)
{
    CMatrix d = Make(3, 3, {2, 0, 0, 0, 4, 0, 0, 0, 8});
    EXPECT_TRUE(Is(d.Inversed(), 3, 3, {0.5f, 0, 0, 0, 0.25f, 0, 0, 0, 0.125f}));
    EXPECT_EQ(d.m_nResult, RESULT_NO_ERROR);

    CMatrix m = Make(2, 2, {4, 2, 0, 0});
    EXPECT_EQ(m.Inversed().GetRowSize(), 2);
    EXPECT_EQ(m.m_nResult, RESULT_SINGULAR);
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

    CMatrix one = Make(1, 1, {0});  // no index past the single row
    EXPECT_TRUE(std::isinf(one.Inversed()[0][0]));
}

TEST(MatrixSolve, DeterminantPivoting)
{
    EXPECT_EQ(Make(2, 2, {0, 1, 1, 0}).Determinant(), -1.0f);
    CMatrix tie = Make(2, 2, {1, 2, 2, 4});
    // Rows exchanged on the tie, pivot 2, zero second pivot nudged to 1e-20.
    EXPECT_EQ(tie.Determinant(), -1.0f * 2.0f * 1.0e-20f);
    EXPECT_EQ(tie.m_nResult, RESULT_NO_ERROR);
}

TEST(MatrixSolve, GaussJordan)
{
    CMatrix holder;
    CMatrix a = Make(2, 2, {1, 0, 0, 1}), b = Make(2, 1, {3, 4});
    EXPECT_EQ(holder.GaussJordan(a, b), RESULT_NO_ERROR);
    EXPECT_TRUE(Is(a, 2, 2, {1, 0, 0, 1}));
    EXPECT_TRUE(Is(b, 2, 1, {3, 4}));
    a = Make(2, 2, {0, 2, 4, 0});
    b = Make(2, 1, {2, 8});
    holder.GaussJordan(a, b);
    EXPECT_TRUE(Is(a, 2, 2, {0, 0.25f, 0.5f, 0}));
    EXPECT_TRUE(Is(b, 2, 1, {2, 1}));
    a = Make(2, 2, {1, 2, 2, 4});
    EXPECT_EQ(holder.GaussJordan(a, b), RESULT_SINGULAR);
    EXPECT_STREQ(holder.m_szErrFunc, "GaussJordan");
}

TEST(MatrixSvd, DiagonalCasesKeepOrderAndSigns)
{
    CMatrix holder, a = Make(2, 2, {3, 0, 0, -2}), v(2, 2);
    CVector w(2);
    EXPECT_EQ(holder.SingularValueDecomposition(a, w, v), RESULT_NO_ERROR);
    EXPECT_TRUE(w == Vec({3, 2}));
    EXPECT_TRUE(Is(a, 2, 2, {-1, 0, 0, -1}));
    EXPECT_TRUE(Is(v, 2, 2, {-1, 0, 0, 1}));
    a = Make(2, 2, {1, 0, 0, 5});
    holder.SingularValueDecomposition(a, w, v);
    EXPECT_TRUE(w == Vec({1, 5}));
    EXPECT_TRUE(Is(a, 2, 2, {-1, 0, 0, -1}));
    EXPECT_TRUE(Is(v, 2, 2, {-1, 0, 0, -1}));
}

TEST(MatrixSvd, PseudoInverseAndLeastSquares)
{
    CMatrix pinv = Make(2, 2, {4, 1, 2, 3}).SVDInverse();
    const float ref[] = {0.3f, -0.1f, -0.2f, 0.4f};
    for (int i = 0; i < 4; i++)
        EXPECT_NEAR(pinv.m_pData[i], ref[i], 1e-6);
    CMatrix bad = Make(2, 2, {1, 0, 0, 0}).SVDInverse();  // no truncation
    EXPECT_FALSE(std::isfinite(bad[0][0] + bad[0][1] + bad[1][0] + bad[1][1]));

    // y = c0 + c1 x through (0, 1), (1, 2), (2, 4): c = (5/6, 3/2).
    CMatrix m = Make(3, 2, {1, 0, 1, 1, 1, 2});
    CVector b = Vec({1, 2, 4}), shortB(2);
    CVector x = m.SoluteEquation(b);
    ASSERT_EQ(x.GetSize(), 2);
    EXPECT_NEAR(*x[0], 5.0f / 6.0f, 1e-5);
    EXPECT_NEAR(*x[1], 1.5f, 1e-5);
    EXPECT_DEATH(m.SoluteEquation(shortB), "refmatrixA.GetColSize\\(\\) == refvectorB.GetSize\\(\\)");
}

TEST(MatrixSvd, NonConvergenceEmptiesResults)
{
    CMatrix m = Make(2, 2, {NAN, 1, 1, 1});
    EXPECT_EQ(m.SVDInverse().GetRowSize(), 0);
    EXPECT_EQ(m.m_nResult, RESULT_NO_CONVERGENCE);
    EXPECT_STREQ(m.m_szErrFunc, "SingularVlueDecomposition");
    EXPECT_STREQ(m.m_szResultMsg[2], "No convergence in 30 SVD iterations");
    m[0][0] = 1;
    CVector b = Vec({1, 1});
    EXPECT_EQ(m.SoluteEquation(b).GetSize(), 0);
}

TEST(MatrixJacobi, RotationSortAndOrientation)
{
    CMatrix a = Make(2, 2, {2, 1, 1, 2}), v(2, 2);
    CVector d(2);
    ASSERT_EQ(CMatrix::Jacobi(a, d, v), 1);
    EXPECT_TRUE(d == Vec({3, 1}));
    const float r = 0.70710677f;
    for (float e : {v[0][0], v[1][0], v[0][1], -v[1][1]})
        EXPECT_FLOAT_EQ(e, r);

    CMatrix g = Make(3, 3, {1, 0, 0, 0, 3, 0, 0, 0, 2}), v3(3, 3);
    CVector d3(3);
    ASSERT_EQ(CMatrix::Jacobi(g, d3, v3), 1);
    EXPECT_TRUE(d3 == Vec({3, 2, 1}));
    EXPECT_TRUE(Is(v3, 3, 3, {0, 0, 1, 1, 0, 0, 0, 1, 0}));

    CMatrix s = Make(1, 1, {-7}), v1(1, 1);
    CVector d1(1);
    ASSERT_EQ(CMatrix::Jacobi(s, d1, v1), 1);
    EXPECT_TRUE(d1 == Vec({-7}));
    EXPECT_TRUE(Is(v1, 1, 1, {1}));
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
