// Preconditions are part of the contract: keep them even if a build
// passes NDEBUG.
#undef NDEBUG
#include <algorithm>
#include <cassert>
#include <cmath>
#include <cstring>
#include <functional>
#include <vector>

#include "math/Matrix.h"

namespace {

// Records a solver failure on the holder; the code stays set for good.
_RESULT Fail(CMatrix& holder, _RESULT code, const char* func)
{
    holder.m_nResult = code;
    std::strncpy(holder.m_szErrFunc, func, sizeof(holder.m_szErrFunc) - 1);
    holder.m_szErrFunc[sizeof(holder.m_szErrFunc) - 1] = '\0';
    return code;
}

// Running sums of magnitudes add in double and round back each step.
float AddAbs(float sum, float v)
{
    return static_cast<float>(static_cast<double>(sum) + std::fabs(static_cast<double>(v)));
}

// Square roots are taken in double and rounded once.
float RootToSingle(float s)
{
    return static_cast<float>(std::sqrt(static_cast<double>(s)));
}

void SwapRows(CMatrix& M, int r1, int r2, int cols)
{
    for (int k = 0; k < cols; k++)
        std::swap(M[r1][k], M[r2][k]);
}

void SwapCols(CMatrix& M, int c1, int c2, int rows)
{
    for (int k = 0; k < rows; k++)
        std::swap(M[k][c1], M[k][c2]);
}

// r(i, j) = op(A(i, j), B(i, j)) over the receiver's size; reads only the
// same element of A and B, so r may alias either.
template <class Op>
CMatrix& Elementwise(CMatrix& r, const CMatrix& A, const CMatrix& B, Op op)
{
    for (int i = 0; i < r.GetRowSize(); i++)
        for (int j = 0; j < r.GetColSize(); j++)
            r[i][j] = op(A[i][j], B[i][j]);
    return r;
}

// Givens rotation of the pair (x, y) in the SVD sweeps.
void Rotate(float& x, float& y, float c, float s)
{
    float a = x;
    float b = y;
    x = a * c + b * s;
    y = b * c - a * s;
}

// Jacobi's tau form of the rotation, from the old values of both.
void RotateTau(float& x, float& y, float s, float tau)
{
    float g = x;
    float h = y;
    x = g - s * (h + g * tau);
    y = h + s * (g - h * tau);
}

// Householder step on x(first .. last - 1), a column or row part of the
// matrix: scale accumulates the magnitudes; when it is not zero the part is
// divided by it and turned into the reflector, g and h receive the
// reflector's values and true is returned (the caller rescales afterwards).
template <class Elem>
bool Reflect(CMatrix& utils, Elem x, int first, int last, float& scale, float& g, float& h)
{
    for (int k = first; k < last; k++)
        scale = AddAbs(scale, x(k));
    if (scale == 0.0f)
        return false;
    float s = 0.0f;
    for (int k = first; k < last; k++) {
        x(k) /= scale;
        s += x(k) * x(k);
    }
    float f = x(first);
    g = -utils.sign(RootToSingle(s), f);
    h = f * g - s;
    x(first) = f - g;
    return true;
}

}  // namespace

// ---- construction, size, access -----------------------------------------

int CMatrix::GetRowSize() const { return m_nRows; }
int CMatrix::GetColSize() const { return m_nCols; }
int CMatrix::GetType() const { return m_nType; }

CMatrix::CMatrix()
{
    Initialize();
    m_nRows = m_nCols = 0;
}

CMatrix::CMatrix(int rows, int cols)
{
    Initialize();
    SetSize(rows, cols);
}

CMatrix::CMatrix(const CMatrix& refmatrix)
{
    Initialize();
    SetSize(refmatrix.m_nRows, refmatrix.m_nCols);
    for (int i = 0; i < m_nRows; i++)
        for (int j = 0; j < m_nCols; j++)
            (*this)[i][j] = refmatrix[i][j];
    m_nType = refmatrix.m_nType;
}

CMatrix::~CMatrix()
{
    if (m_pData) {
        delete[] m_pData;
        if (m_ppRow)
            delete[] m_ppRow;
    }
}

void CMatrix::Initialize()
{
    m_pData = nullptr;
    m_nType = 0;
    m_nResult = RESULT_NO_ERROR;
    std::strcpy(m_szResultMsg[RESULT_NO_ERROR], "No error!");
    std::strcpy(m_szResultMsg[RESULT_SINGULAR], "Singular Matrix!");
    std::strcpy(m_szResultMsg[RESULT_NO_CONVERGENCE], "No convergence in 30 SVD iterations");
    m_szErrFunc[0] = '\0';
}

void CMatrix::SetSize(int rows, int cols)
{
    assert(rows >= 0);
    assert(cols >= 0);
    // The row table only ever exists next to an element block.
    if (m_pData) {
        delete[] m_pData;
        if (m_ppRow)
            delete[] m_ppRow;
    }
    m_nCols = cols;
    m_nRows = rows;
    if (rows >= 1 && cols >= 1) {
        m_pData = new float[static_cast<size_t>(rows) * static_cast<size_t>(cols)];
        m_ppRow = new float*[rows];
        for (int i = 0; i < rows; i++)
            m_ppRow[i] = m_pData + static_cast<size_t>(i) * cols;
    } else {
        m_pData = nullptr;
        m_nCols = 0;
        m_nRows = 0;
    }
    if (m_nRows == m_nCols && m_nRows > 0)
        m_nType |= MATRIX_SQARE;
    else
        m_nType = 0;
}

void CMatrix::MakeZero()
{
    assert(m_nRows > 0 && m_nCols > 0);
    for (int i = 0; i < m_nRows; i++)
        for (int j = 0; j < m_nCols; j++)
            (*this)[i][j] = 0.0f;
}

void CMatrix::MakeUnit()
{
    assert(m_nRows == m_nCols && m_nCols> 0);
    for (int i = 0; i < m_nRows; i++)
        for (int j = 0; j < m_nCols; j++)
            (*this)[i][j] = i == j ? 1.0f : 0.0f;
}

CMatrix& CMatrix::Transpose()
{
    *this = Transposed();
    return *this;
}

CMatrix CMatrix::Transposed()
{
    CMatrix r(m_nCols, m_nRows);
    for (int i = 0; i < m_nRows; i++)
        for (int j = 0; j < m_nCols; j++)
            r[j][i] = (*this)[i][j];
    return r;
}

// ---- in-place combinations ----------------------------------------------

// A macro so that a failed check reports the calling member.
#define ASSERT_OPERANDS_MATCH_RECEIVER()             \
    do {                                            \
        assert(nRows == refmatrixA.GetRowSize());   \
        assert(nCols == refmatrixA.GetColSize());   \
        assert(nRows == refmatrixB.GetRowSize());   \
        assert(nCols == refmatrixB.GetColSize());   \
    } while (0)

CMatrix& CMatrix::EqSum(const CMatrix& refmatrixA, const CMatrix& refmatrixB)
{
    int nRows = m_nRows;
    int nCols = m_nCols;
    ASSERT_OPERANDS_MATCH_RECEIVER();
    return Elementwise(*this, refmatrixA, refmatrixB, std::plus<float>());
}

CMatrix& CMatrix::EqDiff(const CMatrix& refmatrixA, const CMatrix& refmatrixB)
{
    int nRows = m_nRows;
    int nCols = m_nCols;
    ASSERT_OPERANDS_MATCH_RECEIVER();
    return Elementwise(*this, refmatrixA, refmatrixB, std::minus<float>());
}

CMatrix& CMatrix::EqProd(const CMatrix& refmatrixA, const CMatrix& refmatrixB)
{
    int nTerms = refmatrixA.GetColSize();
    assert(m_nRows == refmatrixA.GetRowSize());
    assert(nTerms == refmatrixB.GetRowSize());
    assert(refmatrixB.GetColSize() == m_nCols);
    for (int i = 0; i < m_nRows; i++)
        for (int j = 0; j < m_nCols; j++) {
            float sum = 0.0f;
            for (int k = 0; k < nTerms; k++)
                sum += refmatrixA[i][k] * refmatrixB[k][j];
            (*this)[i][j] = sum;
        }
    return *this;
}

// ---- operators ----------------------------------------------------------

CMatrix CMatrix::operator+(const CMatrix& refmatrix) const
{
    CMatrix r(*this);
    r.EqSum(r, refmatrix);
    return r;
}

CMatrix CMatrix::operator-(const CMatrix& refmatrix) const
{
    CMatrix r(*this);
    r.EqDiff(r, refmatrix);
    return r;
}

CMatrix CMatrix::operator*(float dbl) const
{
    CMatrix r(*this);
    r *= dbl;
    return r;
}

CMatrix CMatrix::operator/(float dbl) const
{
    CMatrix r(*this);
    r /= dbl;
    return r;
}

CMatrix CMatrix::operator-() const
{
    CMatrix r(m_nRows, m_nCols);
    for (int i = 0; i < m_nRows; i++)
        for (int j = 0; j < m_nCols; j++)
            r[i][j] = -(*this)[i][j];
    return r;
}

CMatrix CMatrix::operator*(const CMatrix& refmatrix)
{
    CMatrix r(m_nRows, refmatrix.GetColSize());
    r.EqProd(*this, refmatrix);
    return r;
}

CVector CMatrix::operator*(const CVector& refvector) const
{
    CVector r(m_nRows, VECTOR_COLUMN);
    r.EqProd(*this, refvector);
    return r;
}

CMatrix& CMatrix::operator=(float dbl)
{
    if (dbl == 0.0f && m_nRows != 0) {
        // Bytewise clear: -0.0 is stored as +0.0.
        assert(m_nRows > 0);
        assert(m_nCols > 0);
        std::memset(m_pData, 0, sizeof(float) * static_cast<size_t>(m_nRows) * m_nCols);
    } else {
        for (int i = 0; i < m_nRows * m_nCols; i++)
            m_pData[i] = dbl;
    }
    return *this;
}

CMatrix& CMatrix::operator=(const CMatrix& refmatrix)
{
    // No self-assignment check: assigning to itself reads the fresh block.
    SetSize(refmatrix.m_nRows, refmatrix.m_nCols);
    for (int i = 0; i < m_nRows; i++)
        for (int j = 0; j < m_nCols; j++)
            (*this)[i][j] = refmatrix[i][j];
    return *this;
}

CMatrix& CMatrix::operator+=(const CMatrix& refmatrix)
{
    assert((GetRowSize() == refmatrix.GetRowSize()) && (GetColSize() == refmatrix.GetColSize()));
    for (int i = 0; i < m_nRows; i++)
        for (int j = 0; j < m_nCols; j++)
            (*this)[i][j] += refmatrix[i][j];
    return *this;
}

CMatrix& CMatrix::operator-=(const CMatrix& refmatrix)
{
    assert((m_nRows == refmatrix.GetRowSize()) && (m_nCols == refmatrix.GetColSize()));
    for (int i = 0; i < m_nRows; i++)
        for (int j = 0; j < m_nCols; j++)
            (*this)[i][j] -= refmatrix[i][j];
    return *this;
}

CMatrix& CMatrix::operator*=(float dbl)
{
    for (int i = 0; i < m_nRows; i++)
        for (int j = 0; j < m_nCols; j++)
            (*this)[i][j] *= dbl;
    return *this;
}

CMatrix& CMatrix::operator/=(float dbl)
{
    assert(dbl != 0);
    for (int i = 0; i < m_nRows; i++)
        for (int j = 0; j < m_nCols; j++)
            (*this)[i][j] /= dbl;
    return *this;
}

CMatrix& CMatrix::operator*=(const CMatrix& refmatrix)
{
    CMatrix matrixT(*this);
    assert(matrixT.GetColSize() == refmatrix.GetRowSize());
    if (refmatrix.GetColSize() != refmatrix.GetRowSize())
        SetSize(m_nRows, refmatrix.GetColSize());
    // The sum runs to the receiver's new column count (equal to the old one
    // for a square operand); a wide operand would read past both operands'
    // rows, so the bound stops at the rows that exist.
    int nTerms = std::min(m_nCols, matrixT.GetColSize());
    for (int i = 0; i < matrixT.GetRowSize(); i++)
        for (int j = 0; j < refmatrix.GetColSize(); j++) {
            float sum = 0.0f;
            for (int k = 0; k < nTerms; k++)
                sum += matrixT[i][k] * refmatrix[k][j];
            (*this)[i][j] = sum;
        }
    return *this;
}

bool CMatrix::operator==(const CMatrix& refmatrix) const
{
    if (m_nRows != refmatrix.m_nRows || m_nCols != refmatrix.m_nCols)
        return false;
    if (m_nRows == 0 || m_nCols == 0)
        return true;
    for (int i = 0; i < m_nRows; i++)
        if (std::memcmp((*this)[i], refmatrix[i], sizeof(float) * m_nCols) != 0)
            return false;
    return true;
}

bool CMatrix::operator!=(const CMatrix& refmatrix) const
{
    return !(*this == refmatrix);
}

// ---- LU decomposition, inversion, determinant, Gauss-Jordan -------------

_RESULT CMatrix::LUDecomposition(CMatrix& A, int* indx, float& d)
{
    assert(A.GetType() & MATRIX_SQARE);
    int n = A.GetColSize();
    CVector vv(n, VECTOR_COLUMN);
    float* scale = vv[0];
    d = 1.0f;

    // Implicit row scaling: pivots are compared relative to each row's
    // largest magnitude.
    for (int i = 0; i < n; i++) {
        float big = 0.0f;
        for (int j = 0; j < n; j++) {
            float temp = std::fabs(A[i][j]);
            if (temp > big)
                big = temp;
        }
        if (big == 0.0f)
            return Fail(*this, RESULT_SINGULAR, "LUDecomposition");
        scale[i] = 1.0f / big;
    }

    for (int j = 0; j < n; j++) {
        for (int i = 0; i < j; i++) {
            float sum = A[i][j];
            for (int k = 0; k < i; k++)
                sum -= A[i][k] * A[k][j];
            A[i][j] = sum;
        }
        float big = 0.0f;
        int imax = j;  // stays on the diagonal if every candidate is NaN
        for (int i = j; i < n; i++) {
            float sum = A[i][j];
            for (int k = 0; k < j; k++)
                sum -= A[i][k] * A[k][j];
            A[i][j] = sum;
            float dum = scale[i] * std::fabs(sum);
            if (dum >= big) {
                big = dum;
                imax = i;
            }
        }
        if (j != imax) {
            SwapRows(A, imax, j, n);
            d = -d;
            scale[imax] = scale[j];
        }
        indx[j] = imax;
        // A zero pivot found this late is nudged so the decomposition goes on.
        if (A[j][j] == 0.0f)
            A[j][j] = 1.0e-20f;
        float dum = 1.0f / A[j][j];
        for (int i = j + 1; i < n; i++)
            A[i][j] *= dum;
    }
    return m_nResult;
}

_RESULT CMatrix::LUBackstitution(CMatrix& A, int* indx, CVector& b)
{
    assert(A.GetType() & MATRIX_SQARE);
    int n = A.GetColSize();
    float* x = b[0];
    int ii = -1;  // first non-zero entry of b; leading zeros are skipped

    for (int i = 0; i < n; i++) {
        int ip = indx[i];
        float sum = x[ip];
        x[ip] = x[i];
        if (ii >= 0) {
            for (int j = ii; j < i; j++)
                sum -= A[i][j] * x[j];
        } else if (sum != 0.0f) {
            ii = i;
        }
        x[i] = sum;
    }
    for (int i = n - 1; i >= 0; i--) {
        float sum = x[i];
        for (int j = i + 1; j < n; j++)
            sum -= A[i][j] * x[j];
        x[i] = sum / A[i][i];
    }
    return m_nResult;
}

CMatrix CMatrix::Inversed()
{
    assert(m_nType & MATRIX_SQARE);
    // A zero row stops the decomposition before indx is written; the
    // placeholder 1 must still name a row, so a 1 x 1 matrix uses 0.
    std::vector<int> indx(m_nRows, m_nRows > 1 ? 1 : 0);
    CMatrix lu(*this);
    CMatrix result(m_nRows, m_nCols);
    CVector col(m_nRows, VECTOR_COLUMN);
    float d;

    // The status is deliberately not examined: the holder records it.
    LUDecomposition(lu, indx.data(), d);
    for (int j = 0; j < m_nCols; j++) {
        col = 0.0f;
        col[j][0] = 1.0f;
        LUBackstitution(lu, indx.data(), col);
        for (int i = 0; i < m_nRows; i++)
            result[i][j] = col[i][0];
    }
    return result;
}

CMatrix& CMatrix::Inverse()
{
    assert(m_nRows == m_nCols);
    *this = Inversed();
    return *this;
}

float CMatrix::Determinant()
{
    assert(m_nType & MATRIX_SQARE);
    CMatrix lu(*this);
    std::vector<int> indx(m_nRows);
    float d;

    // On a zero row lu stays the copy and d is 1, so the product of the
    // diagonal (holding that row's zero) is returned.
    LUDecomposition(lu, indx.data(), d);
    float det = d;
    for (int i = 0; i < m_nRows; i++)
        det *= lu[i][i];
    return det;
}

_RESULT CMatrix::GaussJordan(CMatrix& A, CMatrix& B)
{
    assert(A.GetType() & MATRIX_SQARE);
    int n = A.GetRowSize();
    int m = B.GetColSize();
    std::vector<int> indxc(n), indxr(n), ipiv(n, 0);
    int irow = 0;
    int icol = 0;

    for (int i = 0; i < n; i++) {
        // Full pivoting over the rows and columns not yet used.
        float big = 0.0f;
        for (int j = 0; j < n; j++) {
            if (ipiv[j] == 1)
                continue;
            for (int k = 0; k < n; k++) {
                if (ipiv[k] == 0) {
                    if (std::fabs(A[j][k]) >= big) {
                        big = std::fabs(A[j][k]);
                        irow = j;
                        icol = k;
                    }
                } else if (ipiv[k] > 1) {
                    return Fail(*this, RESULT_SINGULAR, "GaussJordan");
                }
            }
        }
        ++ipiv[icol];
        if (irow != icol) {
            SwapRows(A, irow, icol, n);
            SwapRows(B, irow, icol, m);
        }
        indxr[i] = irow;
        indxc[i] = icol;
        if (A[icol][icol] == 0.0f)
            return Fail(*this, RESULT_SINGULAR, "GaussJordan");

        float pivinv = 1.0f / A[icol][icol];
        A[icol][icol] = 1.0f;
        for (int l = 0; l < n; l++)
            A[icol][l] *= pivinv;
        for (int l = 0; l < m; l++)
            B[icol][l] *= pivinv;
        for (int ll = 0; ll < n; ll++) {
            if (ll == icol)
                continue;
            float dum = A[ll][icol];
            A[ll][icol] = 0.0f;
            for (int l = 0; l < n; l++)
                A[ll][l] -= A[icol][l] * dum;
            for (int l = 0; l < m; l++)
                B[ll][l] -= B[icol][l] * dum;
        }
    }
    // Undo the column interchanges in reverse order.
    for (int l = n - 1; l >= 0; l--)
        if (indxr[l] != indxc[l])
            SwapCols(A, indxr[l], indxc[l], n);
    return m_nResult;
}

// ---- singular value decomposition ---------------------------------------

_RESULT CMatrix::SingularValueDecomposition(CMatrix& A, CVector& w, CMatrix& V)
{
    int m = A.GetRowSize();
    int n = A.GetColSize();
    CVector rv1v(n, VECTOR_COLUMN);
    float* rv1 = rv1v[0];
    float* wv = w[0];
    float g = 0.0f, scale = 0.0f, anorm = 0.0f;
    float s = 0.0f, f, h, c, x, y, z;
    int l = 0, nm = 0;

    // Householder reduction to bidiagonal form.
    for (int i = 0; i < n; i++) {
        l = i + 1;
        rv1[i] = scale * g;
        g = scale = 0.0f;
        if (i < m) {
            auto col = [&A, i](int k) -> float& { return A[k][i]; };
            if (Reflect(*this, col, i, m, scale, g, h)) {
                for (int j = l; j < n; j++) {
                    s = 0.0f;
                    for (int k = i; k < m; k++)
                        s += A[k][i] * A[k][j];
                    f = s / h;
                    for (int k = i; k < m; k++)
                        A[k][j] += f * A[k][i];
                }
                for (int k = i; k < m; k++)
                    A[k][i] *= scale;
            }
        }
        wv[i] = scale * g;
        g = scale = 0.0f;
        if (i < m && i != n - 1) {
            auto row = [&A, i](int k) -> float& { return A[i][k]; };
            if (Reflect(*this, row, l, n, scale, g, h)) {
                for (int k = l; k < n; k++)
                    rv1[k] = A[i][k] / h;
                for (int j = l; j < m; j++) {
                    s = 0.0f;
                    for (int k = l; k < n; k++)
                        s += A[j][k] * A[i][k];
                    for (int k = l; k < n; k++)
                        A[j][k] += s * rv1[k];
                }
                for (int k = l; k < n; k++)
                    A[i][k] *= scale;
            }
        }
        anorm = Max(anorm, AddAbs(std::fabs(rv1[i]), wv[i]));
    }

    // Accumulation of the right-hand transformations.
    for (int i = n - 1; i >= 0; i--) {
        if (i < n - 1) {
            if (g != 0.0f) {
                for (int j = l; j < n; j++)
                    V[j][i] = (A[i][j] / A[i][l]) / g;  // two divisions avoid underflow
                for (int j = l; j < n; j++) {
                    s = 0.0f;
                    for (int k = l; k < n; k++)
                        s += A[i][k] * V[k][j];
                    for (int k = l; k < n; k++)
                        V[k][j] += s * V[k][i];
                }
            }
            for (int j = l; j < n; j++)
                V[i][j] = V[j][i] = 0.0f;
        }
        V[i][i] = 1.0f;
        g = rv1[i];
        l = i;
    }

    // Accumulation of the left-hand transformations.
    for (int i = std::min(m, n) - 1; i >= 0; i--) {
        l = i + 1;
        g = wv[i];
        for (int j = l; j < n; j++)
            A[i][j] = 0.0f;
        if (g != 0.0f) {
            g = 1.0f / g;
            for (int j = l; j < n; j++) {
                s = 0.0f;
                for (int k = l; k < m; k++)
                    s += A[k][i] * A[k][j];
                f = (s / A[i][i]) * g;
                for (int k = i; k < m; k++)
                    A[k][j] += f * A[k][i];
            }
            for (int j = i; j < m; j++)
                A[j][i] *= g;
        } else {
            for (int j = i; j < m; j++)
                A[j][i] = 0.0f;
        }
        A[i][i] += 1.0f;
    }

    // Diagonalisation of the bidiagonal form.
    for (int k = n - 1; k >= 0; k--) {
        for (int its = 1; its <= 30; its++) {
            bool flag = true;
            for (l = k; l >= 0; l--) {
                nm = l - 1;
                // rv1[0] is always 0, so l == 0 splits here; testing l
                // explicitly keeps a NaN norm from reaching w[-1].
                if (l == 0 || std::fabs(rv1[l]) + anorm == anorm) {
                    flag = false;
                    break;
                }
                if (std::fabs(wv[nm]) + anorm == anorm)
                    break;
            }
            if (flag) {
                // Cancel rv1[l] when w[nm] is negligible.
                c = 0.0f;
                s = 1.0f;
                for (int i = l; i <= k; i++) {
                    f = s * rv1[i];
                    rv1[i] = c * rv1[i];
                    if (std::fabs(f) + anorm == anorm)
                        break;
                    g = wv[i];
                    h = pythag(f, g);
                    wv[i] = h;
                    h = 1.0f / h;
                    c = g * h;
                    s = -f * h;
                    for (int j = 0; j < m; j++)
                        Rotate(A[j][nm], A[j][i], c, s);
                }
            }
            z = wv[k];
            if (l == k) {
                // Converged; singular values are made non-negative.
                if (z < 0.0f) {
                    wv[k] = -z;
                    for (int j = 0; j < n; j++)
                        V[j][k] = -V[j][k];
                }
                break;
            }
            if (its == 30)
                return Fail(*this, RESULT_NO_CONVERGENCE, "SingularVlueDecomposition");

            // Shift from the bottom 2 x 2 minor; the quotient is formed in
            // double from a single-precision numerator.
            x = wv[l];
            nm = k - 1;
            y = wv[nm];
            g = rv1[nm];
            h = rv1[k];
            float num = (y - z) * (y + z) + (g - h) * (g + h);
            double den = 2.0 * static_cast<double>(h) * static_cast<double>(y);
            f = static_cast<float>(static_cast<double>(num) / den);
            g = pythag(f, 1.0f);
            f = ((x - z) * (x + z) + h * ((y / (f + sign(g, f))) - h)) / x;

            // Implicit QR sweep.
            c = s = 1.0f;
            for (int j = l; j <= nm; j++) {
                int i = j + 1;
                g = rv1[i];
                y = wv[i];
                h = s * g;
                g = c * g;
                z = pythag(f, h);
                rv1[j] = z;
                c = f / z;
                s = h / z;
                f = x * c + g * s;
                g = g * c - x * s;
                h = y * s;
                y = y * c;
                for (int r = 0; r < n; r++)
                    Rotate(V[r][j], V[r][i], c, s);
                z = pythag(f, h);
                wv[j] = z;
                if (z != 0.0f) {  // NaN passes too
                    z = 1.0f / z;
                    c = f * z;
                    s = h * z;
                }
                f = c * g + s * y;
                x = c * y - s * g;
                for (int r = 0; r < m; r++)
                    Rotate(A[r][j], A[r][i], c, s);
            }
            rv1[l] = 0.0f;
            rv1[k] = f;
            wv[k] = x;
        }
    }
    return m_nResult;
}

namespace {

// (V diag(1/w)) U^T, with the receiver as status holder; false on failure.
// No threshold on w: a zero singular value yields an infinite entry.
bool PseudoInverse(CMatrix& holder, CMatrix& result)
{
    int n = holder.GetColSize();
    CMatrix U(holder);
    CMatrix V(n, n);
    CMatrix W(n, n);
    CVector w(n, VECTOR_COLUMN);
    if (holder.SingularValueDecomposition(U, w, V) != RESULT_NO_ERROR)
        return false;
    W = 0.0f;
    for (int i = 0; i < n; i++)
        W[i][i] = 1.0f / w[i][0];
    U.Transpose();
    result = (V * W) * U;
    return true;
}

}  // namespace

CMatrix CMatrix::SVDInverse()
{
    CMatrix result;
    PseudoInverse(*this, result);
    return result;
}

CVector CMatrix::SoluteEquation(CVector& b)
{
    CMatrix pinv;
    if (!PseudoInverse(*this, pinv))
        return CVector();
    CVector x(m_nCols, VECTOR_COLUMN);
    x = pinv * b;
    return x;
}

// ---- Jacobi eigen-solver ------------------------------------------------

namespace {

// Eigenvalues descending (ties: the higher index wins), columns of v along.
void SortEigen(float* d, CMatrix& v, int n)
{
    for (int i = 0; i < n - 1; i++) {
        int k = i;
        float p = d[k];
        for (int j = i + 1; j < n; j++) {
            if (d[j] >= p) {
                k = j;
                p = d[j];
            }
        }
        if (k != i) {
            d[k] = d[i];
            d[i] = p;
            SwapCols(v, i, k, n);
        }
    }
}

// Makes at least half (rounded up) of each eigenvector's entries
// non-negative, so the sign of a vector is reproducible.
void OrientEigen(CMatrix& v, int n)
{
    float half = std::ceil(static_cast<float>(n) / 2.0f);
    for (int j = 0; j < n; j++) {
        int nonNegative = 0;
        for (int r = 0; r < n; r++)
            if (v[r][j] >= 0.0f)
                nonNegative++;
        if (half > static_cast<float>(nonNegative))
            for (int r = 0; r < n; r++)
                v[r][j] = -v[r][j];
    }
}

// True when g is lost entirely against |x| in double precision.
bool Negligible(float x, float g)
{
    double ax = std::fabs(static_cast<double>(x));
    return ax + static_cast<double>(g) == ax;
}

}  // namespace

int CMatrix::Jacobi(CMatrix& a, CVector& d, CMatrix& v)
{
    int n = a.GetColSize();
    float* dv = d[0];
    std::vector<float> b(n), z(n);

    for (int p = 0; p < n; p++) {
        for (int q = 0; q < n; q++)
            v[p][q] = 0.0f;
        v[p][p] = 1.0f;
    }
    for (int p = 0; p < n; p++) {
        b[p] = dv[p] = a[p][p];
        z[p] = 0.0f;
    }

    for (int i = 0; i < 20; i++) {
        float sm = 0.0f;
        for (int p = 0; p < n - 1; p++)
            for (int q = p + 1; q < n; q++)
                sm = AddAbs(sm, a[p][q]);
        if (sm == 0.0f) {
            SortEigen(dv, v, n);
            OrientEigen(v, n);
            return 1;
        }
        // The first three sweeps rotate only the larger elements.
        float tresh = i <= 2
            ? static_cast<float>(static_cast<double>(sm) * 0.2 / static_cast<double>(n * n))
            : 0.0f;

        for (int p = 0; p < n - 1; p++) {
            for (int q = p + 1; q < n; q++) {
                float g = 100.0f * std::fabs(a[p][q]);
                if (i > 3 && Negligible(dv[p], g) && Negligible(dv[q], g)) {
                    a[p][q] = 0.0f;
                    continue;
                }
                if (!(std::fabs(a[p][q]) > tresh))
                    continue;
                float h = dv[q] - dv[p];
                float t;
                if (Negligible(h, g)) {
                    t = a[p][q] / h;
                } else {
                    float theta = static_cast<float>(0.5 * static_cast<double>(h)
                                                     / static_cast<double>(a[p][q]));
                    float theta2 = theta * theta;
                    t = static_cast<float>(1.0 / (std::fabs(static_cast<double>(theta))
                                                  + std::sqrt(static_cast<double>(theta2) + 1.0)));
                    if (theta < 0.0f)
                        t = -t;
                }
                float t2p1 = t * t + 1.0f;
                float c = static_cast<float>(1.0 / std::sqrt(static_cast<double>(t2p1)));
                float s = t * c;
                float tau = static_cast<float>(static_cast<double>(s) / (1.0 + static_cast<double>(c)));
                h = t * a[p][q];
                z[p] -= h;
                z[q] += h;
                dv[p] -= h;
                dv[q] += h;
                a[p][q] = 0.0f;
                for (int j = 0; j < p; j++)
                    RotateTau(a[j][p], a[j][q], s, tau);
                for (int j = p + 1; j < q; j++)
                    RotateTau(a[p][j], a[j][q], s, tau);
                for (int j = q + 1; j < n; j++)
                    RotateTau(a[p][j], a[q][j], s, tau);
                for (int j = 0; j < n; j++)
                    RotateTau(v[j][p], v[j][q], s, tau);
            }
        }
        for (int p = 0; p < n; p++) {
            b[p] += z[p];
            dv[p] = b[p];
            z[p] = 0.0f;
        }
    }
    return 0;
}

// ---- scalar utilities ---------------------------------------------------

float CMatrix::pythag(float a, float b)
{
    float p = std::fabs(a);
    float q = std::fabs(b);
    // Quotient and square in single, 1 + r^2, its root and the product in
    // double, rounded once.
    if (p > q)
        return static_cast<float>(static_cast<double>(p)
                                  * std::sqrt(1.0 + static_cast<double>(sqr(q / p))));
    if (q == 0.0f)
        return 0.0f;
    return static_cast<float>(static_cast<double>(q)
                              * std::sqrt(1.0 + static_cast<double>(sqr(p / q))));
}

float CMatrix::sqr(float a)
{
    return a == 0.0f ? 0.0f : a * a;
}

float CMatrix::sign(float a, float b)
{
    return b >= 0.0f ? std::fabs(a) : -std::fabs(a);
}

float CMatrix::Max(float a, float b)
{
    return a > b ? a : b;
}
