// Single-precision vector with value semantics: right-hand sides, solutions,
// singular values and eigenvalues of the matrix solvers.
#ifndef SV_MATH_VECTOR_H
#define SV_MATH_VECTOR_H

#include "sv_export.h"

class CMatrix;

// Kind tag. Only VECTOR_COLUMN is used; other values are stored verbatim,
// hence the fixed underlying type.
enum VECTOR_TYPE : int { VECTOR_COLUMN = 1 };

class SV_EXPORT CVector {
public:
    CVector();
    CVector(int len, VECTOR_TYPE type = VECTOR_COLUMN);
    CVector(const CVector& refvector);
    virtual ~CVector();

    int GetSize() const;
    VECTOR_TYPE GetType() const;
    void SetSize(int len, VECTOR_TYPE type = VECTOR_COLUMN);

    // Unchecked element access.
    float* operator[](int i);
    const float* operator[](int i) const;

    float GetLength();
    CVector& EqSum(const CVector& refvectorA, const CVector& refvectorB);
    CVector& EqDiff(const CVector& refvectorA, const CVector& refvectorB);
    // The receiver must not be refvectorB.
    CVector& EqProd(const CMatrix& refmatrixA, const CVector& refvectorB);
    // The receiver must be neither operand.
    CVector& CrossProd(const CVector& refvectorA, const CVector& refvectorB);
    CMatrix Cross();
    CMatrix ExtProd(const CVector& refvectorA, const CVector& refvectorB);
    CVector& Unitize();
    CVector GetSubvector(int len) const;
    CVector& Augment(int len);

    CVector operator+(const CVector& refvector) const;
    CVector operator-(const CVector& refvector) const;
    CVector operator*(float dbl) const;
    float operator*(const CVector& refvector) const;
    CVector operator/(float dbl) const;
    CVector operator-() const;

    CVector& operator=(float dbl);
    CVector& operator=(const CVector& refvector);
    CVector& operator+=(const CVector& refvector);
    CVector& operator-=(const CVector& refvector);
    CVector& operator*=(float dbl);
    CVector& operator/=(float dbl);
    bool operator==(const CVector& refvector) const;
    bool operator!=(const CVector& refvector) const;

    float* m_pData;
    int m_nLen;
    VECTOR_TYPE m_eType;
};

// Either header brings in both classes.
#include "math/Matrix.h"

#endif
