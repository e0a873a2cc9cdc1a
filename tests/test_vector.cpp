#include <gtest/gtest.h>

#include <algorithm>
#include <initializer_list>

#include "math/Vector.h"

namespace {

CVector Vec(std::initializer_list<float> v, VECTOR_TYPE type = VECTOR_COLUMN)
{
    CVector r(static_cast<int>(v.size()), type);
    std::copy(v.begin(), v.end(), r.m_pData);
    return r;
}

TEST(Vector, LengthAndUnitize)
{
    CVector e(0, VECTOR_COLUMN), v = Vec({3, 4}), z = Vec({0, 0});
    EXPECT_EQ(e.m_pData, nullptr);
    EXPECT_EQ(e.GetLength(), 0.0f);
    EXPECT_TRUE(e.Unitize() == CVector());
    EXPECT_EQ(v.GetLength(), 5.0f);
    EXPECT_TRUE(v.Unitize() == Vec({0.6f, 0.8f}));
    EXPECT_TRUE(z.Unitize() == Vec({0, 0}));
}

// Only the copy constructor and Augment keep a non-column kind.
TEST(Vector, KindSubvectorAndAugment)
{
    CVector v = Vec({1, 2, 3}, static_cast<VECTOR_TYPE>(7)), w;
    EXPECT_EQ(CVector(v).GetType(), 7);
    w = v;
    EXPECT_EQ(w.GetType(), VECTOR_COLUMN);
    EXPECT_EQ((-v).GetType(), VECTOR_COLUMN);
    CVector all = v.GetSubvector(5);
    EXPECT_TRUE(all == Vec({1, 2, 3}));
    EXPECT_EQ(all.GetType(), VECTOR_COLUMN);
    EXPECT_TRUE(v.GetSubvector(2) == Vec({1, 2}));
    EXPECT_EQ(v.GetSubvector(0).GetSize(), 0);
    v.Augment(2);
    ASSERT_EQ(v.GetSize(), 5);
    EXPECT_TRUE(v.GetSubvector(3) == Vec({1, 2, 3}));
    EXPECT_EQ(v.GetType(), 7);
}

TEST(Vector, ArithmeticAndCrossProducts)
{
    CVector a = Vec({1, 2, 3}), b = Vec({4, 5, 6}), c;
    EXPECT_TRUE(a + b == Vec({5, 7, 9}));
    EXPECT_TRUE(b - a == Vec({3, 3, 3}));
    EXPECT_TRUE(a * 2.0f == Vec({2, 4, 6}));
    EXPECT_TRUE(b / 2.0f == Vec({2, 2.5f, 3}));
    EXPECT_EQ(a * b, 32.0f);
    CMatrix outer = a.ExtProd(a, Vec({1, -1}));
    EXPECT_EQ(outer.GetRowSize(), 3);
    EXPECT_EQ(outer[2][1], -3.0f);
    EXPECT_TRUE(c.CrossProd(Vec({1, 0, 0}), Vec({0, 1, 0})) == Vec({0, 0, 1}));
    CVector viaMatrix = a.Cross() * b;
    EXPECT_TRUE(viaMatrix == Vec({-3, 6, -3}));
    EXPECT_TRUE(viaMatrix == c.CrossProd(a, b));

    a = -0.0f;  // cleared bytewise: +0.0
    EXPECT_TRUE(a == Vec({0, 0, 0}));
    CVector n = a;
    *n[1] = -0.0f;
    EXPECT_TRUE(a != n);
    EXPECT_FALSE(a == Vec({0, 0}));
}

TEST(VectorDeath, AssertionTexts)
{
    CVector v2 = Vec({1, 2}), v3 = Vec({1, 2, 3}), r;
    EXPECT_DEATH(CVector(-1), "len >= 0");
    EXPECT_DEATH(v2.GetSubvector(-1), "len >= 0");
    EXPECT_DEATH(v2.Augment(-1), "len >= 0");
    EXPECT_DEATH(v2 / 0.0f, "dbl != 0");
    EXPECT_DEATH(v2 /= 0.0f, "dbl != 0");
    EXPECT_DEATH(v2 + v3, "m_nLen == refvector.GetSize\\(\\)");
    EXPECT_DEATH(v2 * v3, "m_nLen == refvector.GetSize\\(\\)");
    EXPECT_DEATH(v2 += v3, "m_nLen == refvectorB.GetSize\\(\\)");
    EXPECT_DEATH(v2.EqDiff(v3, v2), "m_nLen == refvectorA.GetSize\\(\\)");
    EXPECT_DEATH(r.CrossProd(v2, v3), "refvectorA.GetSize\\(\\) == 3");
    EXPECT_DEATH(r.CrossProd(v3, v2), "refvectorB.GetSize\\(\\) == 3");
    EXPECT_DEATH(v2.Cross(), "m_nLen == 3");
    EXPECT_DEATH(v2.EqProd(CMatrix(3, 2), v2), "nRows == m_nLen");
    EXPECT_DEATH(v3.EqProd(CMatrix(3, 2), v3),
                 "refmatrixA.GetColSize\\(\\) == refvectorB.GetSize\\(\\)");
}

}  // namespace
