#include "camera/RotationUtils.h"

#include <gtest/gtest.h>

#include <cmath>
#include <random>
#include <vector>

namespace {

const double kPi = std::acos(-1.0);

// Unit axes with negative components too, so that every quaternion branch is reached.
const std::vector<cv::Vec3d> kAxes{
    {1, 0, 0}, {0, 1, 0}, {0, 0, 1}, {-1, 0, 0}, {0, -1, 0}, cv::normalize(cv::Vec3d(1, -2, 0.5)),
    cv::normalize(cv::Vec3d(-0.3, 0.9, 0.4)), cv::normalize(cv::Vec3d(-0.7, -0.2, -0.6))};

// Rz(yaw)*Ry(pitch)*Rx(roll) from the elementary rotations.
cv::Matx33d zyxMatrix(double roll, double pitch, double yaw) {
    const double cr = std::cos(roll), sr = std::sin(roll), cp = std::cos(pitch),
                 sp = std::sin(pitch), cy = std::cos(yaw), sy = std::sin(yaw);
    return cv::Matx33d(cy, -sy, 0, sy, cy, 0, 0, 0, 1) *
           cv::Matx33d(cp, 0, sp, 0, 1, 0, -sp, 0, cp) *
           cv::Matx33d(1, 0, 0, 0, cr, -sr, 0, sr, cr);
}

cv::Mat toMatrix(const cv::Vec3d& rotVec) {
    cv::Mat R;
    myRodrigues(rotVec, R);
    return R;
}

}  // namespace

TEST(MatrixToVector, BothPathsInvertVectorToMatrixAndTheQuaternionOneWritesAUnitQuaternionOfR) {
    for (const cv::Vec3d& k : kAxes) {
        for (double theta :
             {1e-5, 1e-4, 1e-3, 0.2, 0.5, 1.5, 1.7, 2.9, 3.0, kPi - 1e-3, kPi - 1e-4}) {
            SCOPED_TRACE(testing::Message() << theta << " about " << k);
            const cv::Mat R = toMatrix(k * theta);
            cv::Vec3d back;
            myRodrigues(R, back);
            // sin(theta) comes from 1 - cos^2, which loses accuracy as eps / sin^2 near pi.
            EXPECT_LT(cv::norm(back - k * theta),
                      1e-9 + 1e-14 * theta / std::pow(std::sin(theta), 2));
            if (theta < 1e-4) continue;  // the quaternion path's threshold is 1e-5
            float q[4];
            const cv::Mat r = Matrix2RotVet(R, q);
            ASSERT_EQ(r.type(), CV_64F);
            EXPECT_LT(cv::norm(cv::Vec3d(r.ptr<double>()) - k * theta), 1e-9);
            EXPECT_NEAR(cv::norm(cv::Vec4f(q)), 1.0, 1e-6);
            // v + 2w(u x v) + 2u x (u x v) rotates v by the quaternion (w, u).
            const cv::Vec3d u(q[1], q[2], q[3]), v(0.6, -0.3, 0.8);
            EXPECT_LT(
                cv::norm(v + 2 * q[0] * u.cross(v) + 2 * u.cross(u.cross(v)) - cv::Matx33d(R) * v),
                1e-6);
            if (theta < 0.1) continue;  // float entries cannot resolve tiny angles
            const cv::Mat rf = Matrix2RotVet2(cv::Mat(cv::Matx33f(cv::Matx33d(R))));
            ASSERT_EQ(rf.type(), CV_32F);
            EXPECT_LT(cv::norm(cv::Vec3d(cv::Vec3f(rf.ptr<float>())) - k * theta), 1e-5);
        }
    }
    EXPECT_EQ(cv::norm(toMatrix({5e-7, 0, 0}), cv::Mat::eye(3, 3, CV_64F)), 0.0);
}

TEST(MatrixToVector, IdentityAndHalfTurnsGiveTheZeroVector) {
    cv::Vec3d r(1, 1, 1);
    myRodrigues(cv::Mat::eye(3, 3, CV_64F), r);
    EXPECT_EQ(r, cv::Vec3d(0, 0, 0));
    float q[4] = {0, 0, 0, 0};
    EXPECT_EQ(cv::countNonZero(Matrix2RotVet(cv::Mat::eye(3, 3, CV_64F), q)), 0);
    EXPECT_EQ(cv::Vec4f(q), cv::Vec4f(1, 0, 0, 0));
    EXPECT_EQ(cv::countNonZero(Matrix2RotVet2(cv::Mat::eye(3, 3, CV_32F))), 0);
    // A fitted identity whose trace rounds above 3 must not turn into NaN.
    const cv::Mat roundedUp = cv::Mat::eye(3, 3, CV_32F) * (1 + 2e-7);
    EXPECT_EQ(cv::countNonZero(Matrix2RotVet2(roundedUp)), 0);
    EXPECT_EQ(cv::countNonZero(Matrix2RotVet(roundedUp, nullptr)), 0);

    for (const cv::Vec3d& k : kAxes) {
        const cv::Matx33d halfTurn = 2 * cv::Matx31d(k) * cv::Matx13d(k.val) - cv::Matx33d::eye();
        cv::Vec3d fromMatrix(9, 9, 9), fromVector(9, 9, 9);
        myRodrigues(cv::Mat(halfTurn), fromMatrix);
        myRodrigues(toMatrix(k * kPi), fromVector);
        EXPECT_EQ(fromMatrix, cv::Vec3d(0, 0, 0)) << k;
        EXPECT_EQ(fromVector, cv::Vec3d(0, 0, 0)) << k;
    }
}

TEST(MyRodrigues, RejectsMatricesThatAreNotThreeByThreeDouble) {
    for (const cv::Mat& bad : {cv::Mat(3, 4, CV_64F, 0.0), cv::Mat(2, 3, CV_64F, 0.0),
                               cv::Mat(3, 3, CV_32F, 0.0), cv::Mat(3, 3, CV_32S, 0.0)}) {
        cv::Vec3d r;
        EXPECT_THROW(myRodrigues(bad, r), cv::Exception)
            << bad.rows << "x" << bad.cols << ", type " << bad.type();
    }
}

TEST(RollPitchYaw, RotationVectorComposesRollPitchYawAboutFixedAxesAndBack) {
    std::mt19937 rng(7);
    std::uniform_real_distribution<double> half(-3.1, 3.1), quarter(-1.4, 1.4);
    for (int trial = 0; trial < 50; ++trial) {
        const cv::Vec3d rpy(half(rng), quarter(rng), half(rng));
        const cv::Matx33d truth = zyxMatrix(rpy[0], rpy[1], rpy[2]);

        const cv::Mat rotVecF = RPY2RotVec(cv::Mat(cv::Vec3f(rpy)));
        ASSERT_EQ(rotVecF.type(), CV_32F);
        EXPECT_LE(cv::norm(rotVecF), kPi + 1e-6) << rpy;
        const cv::Mat matrixF = RotVet2Matrix(rotVecF);
        ASSERT_EQ(matrixF.type(), CV_32F);
        EXPECT_LT(cv::norm(matrixF, cv::Mat(cv::Matx33f(truth))), 1e-5) << rpy;
        EXPECT_LT(cv::norm(cv::Vec3d(cv::Vec3f(RotVec2RPYf(rotVecF))) - rpy), 1e-5) << rpy;

        cv::Vec3d rotVec;
        myRodrigues(cv::Mat(truth), rotVec);
        const cv::Mat angles = RotVec2RPY(cv::Mat(rotVec));
        ASSERT_EQ(angles.type(), CV_64F);
        EXPECT_LT(cv::norm(cv::Vec3d(angles) - rpy), 1e-9) << rpy;
    }
}

TEST(VectorMeasures, LengthsAnglesCrossProductsAndDistancesMatchHandValues) {
    const cv::Mat a = (cv::Mat_<float>(1, 3) << 1, 2, 3), b = (cv::Mat_<float>(3, 1) << 4, 5, 6);
    EXPECT_FLOAT_EQ(vectorMagnitude((cv::Mat_<float>(1, 3) << 3, 4, 12)), 13.0f);
    EXPECT_EQ(cv::Vec3f(crossProduct(a, b)), cv::Vec3f(-3, 6, -3));
    const cv::Mat x = (cv::Mat_<double>(1, 3) << 2, 0, 0), xy = (cv::Mat_<double>(1, 3) << 1, 1, 0);
    EXPECT_NEAR(calculateAngle(x, xy), kPi / 4, 1e-6);
    // Parallel and opposite vectors stay finite despite rounding of the cosine.
    const cv::Mat c = (cv::Mat_<float>(1, 3) << 0.1f, 0.7f, 0.3f);
    EXPECT_NEAR(calculateAngle(c, c * 3), 0.0, 1e-6);
    EXPECT_NEAR(calculateAngle(c, -c), kPi, 1e-6);

    double points[3][3] = {{1, 1, 1}, {5, 5, 5}, {3, 2, 3}};
    cv::Mat pointRows(3, 3, CV_64F, points);
    EXPECT_DOUBLE_EQ(Calcudis(points, 0, 2), 3.0);
    EXPECT_DOUBLE_EQ(Calcudis(pointRows, 2, 0), 3.0);
}
