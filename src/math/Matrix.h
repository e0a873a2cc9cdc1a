// Dense row-major single-precision matrix with value semantics, plus the
// small solvers the photometric fit relies on.
#ifndef SV_MATH_MATRIX_H
#define SV_MATH_MATRIX_H

#include <cassert>

#include "sv_export.h"

// Row access is compiled into the host, which may build with NDEBUG; its
// bounds check is part of the contract, so it must not vanish there.
#if defined(__GLIBC__) && defined(__cplusplus)
extern "C" void __assert_fail(const char* assertion, const char* file,
                              unsigned int line, const char* function) noexcept
    __attribute__((__noreturn__));
#define SV_ROW_ASSERT(expr)                                                   \
    (static_cast<bool>(expr)                                                  \
         ? void(0)                                                            \
         : __assert_fail(#expr, __FILE__, __LINE__,                           \
                         __extension__ __PRETTY_FUNCTION__))
#else
#define SV_ROW_ASSERT(expr) assert(expr)
#endif

class CVector;

// Solver status; sticky per holder object once a failure is recorded.
enum _RESULT : int {
    RESULT_NO_ERROR = 0,
    RESULT_SINGULAR = 1,
    RESULT_NO_CONVERGENCE = 2
};

// m_nType flag: square and non-empty.
enum { MATRIX_SQARE = 1 };

class SV_EXPORT CMatrix {
public:
    CMatrix();
    CMatrix(int rows, int cols);
    CMatrix(const CMatrix& refmatrix);
    virtual ~CMatrix();

    void Initialize();
    void SetSize(int rows, int cols);
    int GetRowSize() const;
    int GetColSize() const;
    int GetType() const;

    float* operator[](int i)
    {
        SV_ROW_ASSERT(i < m_nRows && i >= 0);
        return m_pData + m_nCols * i;
    }
    const float* operator[](int i) const { return m_pData + m_nCols * i; }

    void MakeZero();
    void MakeUnit();
    CMatrix& Transpose();
    CMatrix Transposed();

    // The receiver keeps its size; operands must match it.
    CMatrix& EqSum(const CMatrix& refmatrixA, const CMatrix& refmatrixB);
    CMatrix& EqDiff(const CMatrix& refmatrixA, const CMatrix& refmatrixB);
    // The receiver must be neither operand.
    CMatrix& EqProd(const CMatrix& refmatrixA, const CMatrix& refmatrixB);

    CMatrix operator+(const CMatrix& refmatrix) const;
    CMatrix operator-(const CMatrix& refmatrix) const;
    CMatrix operator*(float dbl) const;
    CMatrix operator/(float dbl) const;
    CMatrix operator-() const;
    CMatrix operator*(const CMatrix& refmatrix);
    CVector operator*(const CVector& refvector) const;

    CMatrix& operator=(float dbl);
    CMatrix& operator=(const CMatrix& refmatrix);
    CMatrix& operator+=(const CMatrix& refmatrix);
    CMatrix& operator-=(const CMatrix& refmatrix);
    CMatrix& operator*=(float dbl);
    CMatrix& operator/=(float dbl);
    CMatrix& operator*=(const CMatrix& refmatrix);
    bool operator==(const CMatrix& refmatrix) const;
    bool operator!=(const CMatrix& refmatrix) const;

    // Solvers: the receiver is the status holder, the arithmetic runs on the
    // arguments. Each returns the holder's m_nResult.
    _RESULT LUDecomposition(CMatrix& A, int* indx, float& d);
    _RESULT LUBackstitution(CMatrix& A, int* indx, CVector& b);
    _RESULT GaussJordan(CMatrix& A, CMatrix& B);
    _RESULT SingularValueDecomposition(CMatrix& A, CVector& w, CMatrix& V);
    CMatrix Inversed();
    CMatrix& Inverse();
    float Determinant();
    CMatrix SVDInverse();
    CVector SoluteEquation(CVector& b);
    // Eigen-decomposition of a symmetric matrix; 1 on convergence, else 0.
    static int Jacobi(CMatrix& a, CVector& d, CMatrix& v);

    float pythag(float a, float b);
    float sqr(float a);
    float sign(float a, float b);
    float Max(float a, float b);

    // Kept in step with every reallocation; nothing reads through it.
    float** m_ppRow = nullptr;
    float* m_pData;
    int m_nCols;
    int m_nRows;
    int m_nType;
    _RESULT m_nResult;
    char m_szResultMsg[3][100];
    char m_szErrFunc[32];
};

// Either header brings in both classes.
#include "math/Vector.h"

#endif
