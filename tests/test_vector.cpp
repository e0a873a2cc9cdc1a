#include <gtest/gtest.h>

#include <algorithm>
#include <initializer_list>

#include "math/Vector.h"

namespace {

CVector Vec(std::initializer_list<float> v)
{
    CVector r(static_cast<int>(v.size()));
    std::copy(v.begin(), v.end(), r.m_pData);
    return r;
}

TEST(Vector, LengthAndUnitize)
{
    CVector e(0, VECTOR_COLUMN);
    EXPECT_EQ(e.m_pData, nullptr);
    EXPECT_EQ(e.GetLength(), 0.0f);
    EXPECT_TRUE(e.Unitize() == CVector());
    CVector v = Vec({3, 4});
    EXPECT_EQ(v.GetLength(), 5.0f);
    EXPECT_TRUE(v.Unitize() == Vec({0.6f, 0.8f}));
    CVector z = Vec({0, 0});
    EXPECT_TRUE(z.Unitize() == Vec({0, 0}));
}

TEST(Vector, SubvectorAndAugment)
{
    CVector v(3, static_cast<VECTOR_TYPE>(2));
    std::copy_n(Vec({1, 2, 3}).m_pData, 3, v.m_pData);
    CVector all = v.GetSubvector(5);
    EXPECT_TRUE(all == Vec({1, 2, 3}));
    EXPECT_EQ(all.GetType(), VECTOR_COLUMN);
    EXPECT_TRUE(v.GetSubvector(2) == Vec({1, 2}));
    EXPECT_EQ(v.GetSubvector(0).GetSize(), 0);

    CVector a = Vec({1, 2});
    a.Augment(2);
    ASSERT_EQ(a.GetSize(), 4);
    EXPECT_EQ(*a[0], 1.0f);
    EXPECT_EQ(*a[1], 2.0f);
    v.Augment(1);
    EXPECT_EQ(v.GetType(), 2);
}

TEST(Vector, CrossProductTwoWays)
{
    CVector c;
    EXPECT_TRUE(c.CrossProd(Vec({1, 0, 0}), Vec({0, 1, 0})) == Vec({0, 0, 1}));
    CVector a = Vec({1, 2, 3}), b = Vec({4, 5, 6});
    CVector viaMatrix = a.Cross() * b;
    EXPECT_TRUE(viaMatrix == Vec({-3, 6, -3}));
    EXPECT_TRUE(viaMatrix == c.CrossProd(a, b));
}

TEST(Vector, KindSurvivesCopyButNotAssignment)
{
    CVector v(2, static_cast<VECTOR_TYPE>(7));
    *v[0] = *v[1] = 1;
    EXPECT_EQ(CVector(v).GetType(), 7);
    CVector w;
    w = v;
    EXPECT_EQ(w.GetType(), VECTOR_COLUMN);
    EXPECT_EQ((-v).GetType(), VECTOR_COLUMN);
}

TEST(Vector, ArithmeticAndBytewiseEquality)
{
    CVector a = Vec({1, 2, 3}), b = Vec({4, 5, 6});
    EXPECT_TRUE(a + b == Vec({5, 7, 9}));
    EXPECT_TRUE(b - a == Vec({3, 3, 3}));
    EXPECT_TRUE(a * 2.0f == Vec({2, 4, 6}));
    EXPECT_TRUE(b / 2.0f == Vec({2, 2.5f, 3}));
    EXPECT_EQ(a * b, 32.0f);
    CMatrix outer = a.ExtProd(a, Vec({1, -1}));
    EXPECT_EQ(outer.GetRowSize(), 3);
    EXPECT_EQ(outer[2][1], -3.0f);

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
