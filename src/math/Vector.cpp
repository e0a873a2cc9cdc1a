// Preconditions are part of the contract: keep them even if a build
// passes NDEBUG.
#undef NDEBUG
#include <cassert>
#include <cmath>
#include <cstring>

#include "math/Vector.h"

namespace {

// Single-precision sum of squares in index order.
float SumOfSquares(const float* p, int n)
{
    float s = 0.0f;
    for (int i = 0; i < n; i++)
        s += p[i] * p[i];
    return s;
}

// Root taken in double, rounded once to single.
float RootToSingle(float s)
{
    return static_cast<float>(std::sqrt(static_cast<double>(s)));
}

}  // namespace

CVector::CVector() : m_pData(nullptr), m_nLen(0), m_eType(VECTOR_COLUMN) {}

int CVector::GetSize() const { return m_nLen; }
VECTOR_TYPE CVector::GetType() const { return m_eType; }
float* CVector::operator[](int i) { return m_pData + i; }
const float* CVector::operator[](int i) const { return m_pData + i; }

CVector::CVector(int len, VECTOR_TYPE type)
    : m_pData(nullptr), m_nLen(0), m_eType(type)
{
    SetSize(len, type);
}

CVector::CVector(const CVector& refvector)
    : m_pData(nullptr), m_nLen(0), m_eType(VECTOR_COLUMN)
{
    SetSize(refvector.m_nLen, refvector.m_eType);
    for (int i = 0; i < m_nLen; i++)
        m_pData[i] = refvector.m_pData[i];
}

CVector::~CVector()
{
    if (m_pData)
        delete[] m_pData;
}

void CVector::SetSize(int len, VECTOR_TYPE type)
{
    assert(len >= 0);
    m_eType = type;
    if (m_pData)
        delete[] m_pData;
    m_nLen = len;
    m_pData = len >= 1 ? new float[len] : nullptr;
}

float CVector::GetLength()
{
    return RootToSingle(SumOfSquares(m_pData, m_nLen));
}

CVector& CVector::EqSum(const CVector& refvectorA, const CVector& refvectorB)
{
    assert(m_nLen == refvectorA.GetSize());
    assert(m_nLen == refvectorB.GetSize());
    for (int i = 0; i < m_nLen; i++)
        m_pData[i] = refvectorA.m_pData[i] + refvectorB.m_pData[i];
    return *this;
}

CVector& CVector::EqDiff(const CVector& refvectorA, const CVector& refvectorB)
{
    assert(m_nLen == refvectorA.GetSize());
    assert(m_nLen == refvectorB.GetSize());
    for (int i = 0; i < m_nLen; i++)
        m_pData[i] = refvectorA.m_pData[i] - refvectorB.m_pData[i];
    return *this;
}

CVector& CVector::EqProd(const CMatrix& refmatrixA, const CVector& refvectorB)
{
    int nRows = refmatrixA.GetRowSize();
    assert(nRows == m_nLen);
    assert(refmatrixA.GetColSize() == refvectorB.GetSize());
    int nCols = refmatrixA.GetColSize();
    for (int i = 0; i < m_nLen; i++) {
        const float* row = refmatrixA[i];
        float sum = 0.0f;
        for (int j = 0; j < nCols; j++)
            sum += row[j] * refvectorB.m_pData[j];
        m_pData[i] = sum;
    }
    return *this;
}

CVector& CVector::CrossProd(const CVector& refvectorA, const CVector& refvectorB)
{
    assert(refvectorA.GetSize() == 3);
    assert(refvectorB.GetSize() == 3);
    SetSize(3, VECTOR_COLUMN);
    const float* a = refvectorA.m_pData;
    const float* b = refvectorB.m_pData;
    m_pData[0] = a[1] * b[2] - a[2] * b[1];
    m_pData[1] = a[2] * b[0] - a[0] * b[2];
    m_pData[2] = a[0] * b[1] - a[1] * b[0];
    return *this;
}

CMatrix CVector::Cross()
{
    assert(m_nLen == 3);
    const float* v = m_pData;
    CMatrix r(3, 3);
    r[0][0] = 0.0f;  r[0][1] = -v[2]; r[0][2] = v[1];
    r[1][0] = v[2];  r[1][1] = 0.0f;  r[1][2] = -v[0];
    r[2][0] = -v[1]; r[2][1] = v[0];  r[2][2] = 0.0f;
    return r;
}

CMatrix CVector::ExtProd(const CVector& refvectorA, const CVector& refvectorB)
{
    CMatrix r(refvectorA.GetSize(), refvectorB.GetSize());
    for (int i = 0; i < r.GetRowSize(); i++)
        for (int j = 0; j < r.GetColSize(); j++)
            r[i][j] = refvectorA.m_pData[i] * refvectorB.m_pData[j];
    return r;
}

CVector& CVector::Unitize()
{
    float s = SumOfSquares(m_pData, m_nLen);
    if (s > 0.0f) {  // also false for NaN: such a vector is left alone
        float len = RootToSingle(s);
        for (int i = 0; i < m_nLen; i++)
            m_pData[i] /= len;
    }
    return *this;
}

CVector CVector::GetSubvector(int len) const
{
    assert(len >= 0);
    CVector r;
    if (len >= m_nLen) {
        r = *this;
        return r;
    }
    r.SetSize(len, VECTOR_COLUMN);
    for (int i = 0; i < len; i++)
        r.m_pData[i] = m_pData[i];
    return r;
}

CVector& CVector::Augment(int len)
{
    assert(len >= 0);
    if (len < 1)
        return *this;
    float* grown = new float[m_nLen + len];
    for (int i = 0; i < m_nLen; i++)
        grown[i] = m_pData[i];
    if (m_pData)
        delete[] m_pData;
    m_pData = grown;
    m_nLen += len;
    return *this;
}

CVector CVector::operator+(const CVector& refvector) const
{
    assert(m_nLen == refvector.GetSize());
    CVector r(*this);
    r += refvector;
    return r;
}

CVector CVector::operator-(const CVector& refvector) const
{
    assert(m_nLen == refvector.GetSize());
    CVector r(*this);
    r -= refvector;
    return r;
}

CVector CVector::operator*(float dbl) const
{
    CVector r(*this);
    r *= dbl;
    return r;
}

float CVector::operator*(const CVector& refvector) const
{
    assert(m_nLen == refvector.GetSize());
    float sum = 0.0f;
    for (int i = 0; i < m_nLen; i++)
        sum += m_pData[i] * refvector.m_pData[i];
    return sum;
}

CVector CVector::operator/(float dbl) const
{
    assert(dbl != 0);
    CVector r(*this);
    r /= dbl;
    return r;
}

CVector CVector::operator-() const
{
    CVector r(m_nLen, VECTOR_COLUMN);
    for (int i = 0; i < m_nLen; i++)
        r.m_pData[i] = -m_pData[i];
    return r;
}

CVector& CVector::operator=(float dbl)
{
    if (dbl == 0.0f && m_nLen != 0) {
        // Bytewise clear: -0.0 is stored as +0.0.
        assert(m_nLen > 0);
        std::memset(m_pData, 0, sizeof(float) * static_cast<size_t>(m_nLen));
    } else {
        for (int i = 0; i < m_nLen; i++)
            m_pData[i] = dbl;
    }
    return *this;
}

CVector& CVector::operator=(const CVector& refvector)
{
    // The kind is not carried over; a self-assignment reads the fresh block.
    SetSize(refvector.m_nLen, VECTOR_COLUMN);
    for (int i = 0; i < m_nLen; i++)
        m_pData[i] = refvector.m_pData[i];
    return *this;
}

CVector& CVector::operator+=(const CVector& refvector)
{
    return EqSum(*this, refvector);
}

CVector& CVector::operator-=(const CVector& refvector)
{
    return EqDiff(*this, refvector);
}

CVector& CVector::operator*=(float dbl)
{
    for (int i = 0; i < m_nLen; i++)
        m_pData[i] *= dbl;
    return *this;
}

CVector& CVector::operator/=(float dbl)
{
    assert(dbl != 0);
    for (int i = 0; i < m_nLen; i++)
        m_pData[i] /= dbl;
    return *this;
}

bool CVector::operator==(const CVector& refvector) const
{
    if (m_nLen != refvector.m_nLen)
        return false;
    if (m_nLen == 0)
        return true;
    return std::memcmp(m_pData, refvector.m_pData,
                       sizeof(float) * static_cast<size_t>(m_nLen)) == 0;
}

bool CVector::operator!=(const CVector& refvector) const
{
    return !(*this == refvector);
}
