// Each stage of the virtual sensor, driven by a setting made through the
// controller and seen in the pixels.
#include <algorithm>
#include <cstring>

#include "host/ia_ioctrl_v2.h"
#include "sim/SimIsp.h"
#include "tests/vsensor/VirtualSensorSupport.h"

namespace vstest {
namespace {

using sim::Frame;
using sim::SceneRegion;

TEST_F(SensorTest, BrightnessUpRaisesTheMeanLevel) {
    set(KEY_BRIGHTNESS, 50);
    const double before = sim::measureFrame(settle()).mean;
    set(KEY_BRIGHTNESS, 80);
    const double after = sim::measureFrame(settle()).mean;
    EXPECT_GT(after, before + 20.0);
}

TEST_F(SensorTest, SaturationZeroLeavesNoColour) {
    set(KEY_SATURATION, 50);
    const double colourful = sim::measureFrame(settle()).colourfulness;
    set(KEY_SATURATION, 0);
    const double grey = sim::measureFrame(settle()).colourfulness;
    EXPECT_GT(colourful, 15.0);
    EXPECT_LT(grey, 1.0);
}

TEST_F(SensorTest, IrCutFilterOutGivesMonochrome) {
    set(KEY_DN_MODE, 1);
    const Frame day = settle();
    EXPECT_FALSE(day.irCutOut);
    EXPECT_GT(sim::measureFrame(day).colourfulness, 15.0);
    set(KEY_DN_MODE, 2);
    const Frame night = settle();
    EXPECT_TRUE(night.irCutOut);
    for (size_t i = 0; i < night.rgb.size(); i += 3) {
        ASSERT_EQ(night.rgb[i], night.rgb[i + 1]) << "pixel " << i / 3;
        ASSERT_EQ(night.rgb[i], night.rgb[i + 2]) << "pixel " << i / 3;
    }
}

TEST_F(SensorTest, AutomaticDayNightFollowsTheIspState) {
    set(KEY_DN_MODE, 0);
    EXPECT_FALSE(settle(2).irCutOut);
    sim::Isp::instance().setDayNight(0, 1);
    EXPECT_TRUE(settle(2).irCutOut);
}

// The mirror is the last stage: the same frame with it on is the frame
// with it off, reflected, byte for byte.
TEST_F(SensorTest, MirrorGivesTheFrameReflected) {
    const auto render = [&](int mirror) {
        set(KEY_MIRROR, mirror);
        sensor().reset();
        std::string error;
        EXPECT_TRUE(sensor().setFrameSize(kWidth, kHeight, error));
        light(2000.0);
        return settle(5);
    };
    const Frame plain = render(0);
    const Frame mirrored = render(1);
    const Frame flipped = render(2);
    ASSERT_EQ(plain.number, mirrored.number);
    for (int y = 0; y < kHeight; ++y) {
        for (int x = 0; x < kWidth; ++x) {
            const size_t at = (size_t(y) * kWidth + x) * 3;
            const size_t reflected = (size_t(y) * kWidth + (kWidth - 1 - x)) * 3;
            const size_t upsideDown = (size_t(kHeight - 1 - y) * kWidth + x) * 3;
            ASSERT_EQ(0, std::memcmp(&plain.rgb[at], &mirrored.rgb[reflected], 3)) << x << "," << y;
            ASSERT_EQ(0, std::memcmp(&plain.rgb[at], &flipped.rgb[upsideDown], 3)) << x << "," << y;
        }
    }
}

TEST_F(SensorTest, SharpnessUpRaisesHighFrequencyEnergy) {
    set(KEY_SHARPNESS, 0);
    const double soft = stats(settle(), SceneRegion::FineDetail).sharpness;
    set(KEY_SHARPNESS, 50);
    const double usual = stats(settle(), SceneRegion::FineDetail).sharpness;
    set(KEY_SHARPNESS, 100);
    const double sharp = stats(settle(), SceneRegion::FineDetail).sharpness;
    EXPECT_GT(usual, soft * 1.3);
    EXPECT_GT(sharp, usual * 1.3);
}

TEST_F(SensorTest, ManualRedAndBlueGainsMoveTheChannelMeans) {
    set(KEY_WB_MODE, 1);
    set(KEY_R_GAIN, 50);
    set(KEY_B_GAIN, 50);
    const sim::FrameStats neutral = stats(settle(), SceneRegion::FlatGrey);
    set(KEY_R_GAIN, 90);
    const sim::FrameStats redder = stats(settle(), SceneRegion::FlatGrey);
    set(KEY_R_GAIN, 50);
    set(KEY_B_GAIN, 10);
    const sim::FrameStats lessBlue = stats(settle(), SceneRegion::FlatGrey);
    EXPECT_GT(redder.channelMean[0], neutral.channelMean[0] + 15.0);
    EXPECT_LT(lessBlue.channelMean[2], neutral.channelMean[2] - 15.0);
}

TEST_F(SensorTest, AutomaticWhiteBalanceMakesGreyGrey) {
    set(KEY_WB_MODE, 0);
    const sim::FrameStats grey = stats(settle(30), SceneRegion::FlatGrey);
    EXPECT_NEAR(grey.channelMean[0], grey.channelMean[1], 8.0);
    EXPECT_NEAR(grey.channelMean[2], grey.channelMean[1], 8.0);
}

// Manual exposure at a fixed shutter: 40 gain steps (24 dB, 15.85 times)
// more gain with 15.85 times less light gives the same level, noisier.
TEST_F(SensorTest, GainUpRaisesNoise) {
    set(KEY_2D_NR_SWITCH, 0);
    set(KEY_3D_NR_SWITCH, 0);
    set(KEY_EXPOSE_MODE, 3);
    set(KEY_FIX_SHUTTER, 50);
    set(KEY_FIX_GAIN, 10);
    light(400.0);
    const sim::FrameStats low = stats(settle(3), SceneRegion::FlatGrey);
    set(KEY_FIX_GAIN, 50);
    light(400.0 / 15.85);
    const sim::FrameStats high = stats(settle(3), SceneRegion::FlatGrey);
    EXPECT_NEAR(high.mean, low.mean, 6.0);
    EXPECT_GT(high.noise, low.noise * 2.0);
}

class NoisyPicture : public SensorTest {
protected:
    void SetUp() override {
        SensorTest::SetUp();
        // Little light: the exposure runs the gain up.
        light(1.0);
        set(KEY_DN_MODE, 1);
        set(KEY_2D_NR_SWITCH, 0);
        set(KEY_3D_NR_SWITCH, 0);
    }
};

TEST_F(NoisyPicture, SpatialNoiseReductionLowersNoise) {
    const double noisy = stats(settle(), SceneRegion::FlatGrey).noise;
    set(KEY_2D_NR_SWITCH, 1);
    set(KEY_2D_NR_MODE, 1);
    set(KEY_2D_NR_STRG_M, 100);
    const double cleaned = stats(settle(), SceneRegion::FlatGrey).noise;
    EXPECT_GT(noisy, 2.0);
    EXPECT_LT(cleaned, noisy * 0.6);
}

TEST_F(NoisyPicture, TemporalNoiseReductionLowersNoise) {
    const double noisy = stats(settle(), SceneRegion::FlatGrey).noise;
    set(KEY_3D_NR_SWITCH, 1);
    set(KEY_3D_NR_MODE, 1);
    set(KEY_3D_NR_STRG_M, 100);
    const double cleaned = stats(settle(), SceneRegion::FlatGrey).noise;
    EXPECT_GT(noisy, 2.0);
    EXPECT_LT(cleaned, noisy * 0.7);
}

TEST_F(SensorTest, WdrLiftsShadowsWithoutClippingMore) {
    set(KEY_WDR_MODE, 0);
    const Frame plain = settle();
    set(KEY_WDR_MODE, 2);
    set(KEY_WDR_STRG, 80);
    const Frame wide = settle();
    EXPECT_GT(stats(wide, SceneRegion::Shadow).mean, stats(plain, SceneRegion::Shadow).mean + 15.0);
    EXPECT_LE(sim::measureFrame(wide).clipped, sim::measureFrame(plain).clipped);
}

TEST_F(SensorTest, DefogRaisesContrastInFog) {
    std::string error;
    ASSERT_TRUE(sensor().setFog(0.8, error)) << error;
    set(KEY_DEFLG_SWITCH, 0);
    const double foggy = lumaSpread(sim::measureFrame(settle()));
    set(KEY_DEFLG_SWITCH, 1);
    set(KEY_DEFLG_STRG, 100);
    const double cleared = lumaSpread(sim::measureFrame(settle()));
    EXPECT_GT(cleared, foggy * 1.2);
}

TEST_F(SensorTest, FogLowersContrast) {
    const double clear = lumaSpread(sim::measureFrame(settle()));
    std::string error;
    ASSERT_TRUE(sensor().setFog(0.8, error)) << error;
    const double foggy = lumaSpread(sim::measureFrame(settle()));
    EXPECT_LT(foggy, clear * 0.8);
}

// The lens is in focus at position 400 at 1x; autofocus moves 60 steps a
// frame, so 400 steps away it is back within 7 frames (allow 10).
TEST_F(SensorTest, FocusOffPositionBlursAndAutofocusRecovers) {
    ASSERT_TRUE(cam.ctl->setFocusMode(2));
    ASSERT_TRUE(cam.ctl->setFocusValue(400));
    const double sharp = stats(settle(), SceneRegion::FineDetail).sharpness;
    ASSERT_TRUE(cam.ctl->setFocusValue(800));
    const double blurred = stats(settle(3), SceneRegion::FineDetail).sharpness;
    EXPECT_LT(blurred, sharp * 0.3);
    ASSERT_TRUE(cam.ctl->setFocusMode(0));
    Frame frame;
    for (int i = 0; i < 10; ++i)
        frame = sensor().renderFrame();
    EXPECT_EQ(400u, frame.focusPosition);
    EXPECT_GT(stats(frame, SceneRegion::FineDetail).sharpness, sharp * 0.9);
}

// A tenfold light step: the exposure is back within 12 frames.
TEST_F(SensorTest, AutoExposureRestoresTheLevelAfterALightStep) {
    light(200.0);
    const double settled = sim::measureFrame(settle(20)).mean;
    light(2000.0);
    const double dazzled = sim::measureFrame(sensor().renderFrame()).mean;
    EXPECT_GT(dazzled, settled + 40.0);
    double level = dazzled;
    for (int i = 0; i < 12; ++i)
        level = sim::measureFrame(sensor().renderFrame()).mean;
    EXPECT_NEAR(level, settled, settled * 0.08);
}

TEST_F(SensorTest, AutoExposureUsesShutterThenGainWithinTheLimits) {
    set(KEY_MAX_SHUTTER, 30);
    set(KEY_MAX_GAIN, 40);
    light(0.1);
    const Frame dark = settle(30);
    EXPECT_EQ(30u, dark.shutter);
    EXPECT_EQ(40u, dark.gain);
    light(2000.0);
    const Frame bright = settle(30);
    EXPECT_EQ(0u, bright.gain);
    EXPECT_GT(bright.shutter, 30u);
}

// At night, with the IR-cut filter out: the illuminators light the near
// zone more than the far one, so near gains on far.
TEST_F(SensorTest, InfraredAtNightLightsNearMoreThanFar) {
    light(0.1);
    set(KEY_DN_MODE, 2);
    set(KEY_IR_SWITCH, 0);
    const Frame dark = settle(30);
    ASSERT_TRUE(cam.ctl->setIRSwitch(1));
    set(KEY_IR_MODE, 1);
    set(KEY_IR_MANUAL_STRG_NEAR, 100);
    set(KEY_IR_MANUAL_STRG_MEDIUM, 100);
    set(KEY_IR_MANUAL_STRG_FAR, 100);
    const Frame lit = settle(30);
    const double nearDark = stats(dark, SceneRegion::NearZone).mean;
    const double farDark = stats(dark, SceneRegion::FarZone).mean;
    const double nearLit = stats(lit, SceneRegion::NearZone).mean;
    const double farLit = stats(lit, SceneRegion::FarZone).mean;
    EXPECT_GT(nearLit / farLit, 1.5 * nearDark / farDark);
    EXPECT_LT(lit.gain, dark.gain);
}

TEST_F(SensorTest, WhiteLightAtNightLightsNearMoreThanFar) {
    light(0.1);
    set(KEY_DN_MODE, 1);
    const Frame dark = settle(30);
    ASSERT_TRUE(cam.ctl->setWhiteSwitch(1));
    ASSERT_TRUE(cam.ctl->setWhiteMode(1));
    set(KEY_WHITE_MANUAL_STRG, 100);
    set(KEY_WHITE_MANUAL_STRG_MEDIUM, 100);
    set(KEY_WHITE_MANUAL_STRG_FAR, 100);
    const Frame lit = settle(30);
    EXPECT_FALSE(lit.irCutOut);
    const double nearDark = stats(dark, SceneRegion::NearZone).mean;
    const double farDark = stats(dark, SceneRegion::FarZone).mean;
    const double nearLit = stats(lit, SceneRegion::NearZone).mean;
    const double farLit = stats(lit, SceneRegion::FarZone).mean;
    EXPECT_GT(nearLit / farLit, 1.5 * nearDark / farDark);
}

// The burnt-out window no longer holds the exposure down: the scene
// around it brightens.
TEST_F(SensorTest, BacklightCompensationBrightensTheSubject) {
    set(KEY_BLC_SWITCH, 0);
    const double plain = stats(settle(20), SceneRegion::MediumZone).mean;
    set(KEY_BLC_SWITCH, 1);
    set(KEY_BLC_MODE, 0);
    set(KEY_BLC_STRG, 100);
    const double compensated = stats(settle(20), SceneRegion::MediumZone).mean;
    EXPECT_GT(compensated, plain + 10.0);
}

// At night the lamps burn out; highlight compensation holds them below
// full white.
TEST_F(SensorTest, HighlightCompensationKeepsTheLampsFromBurningOut) {
    light(0.1);
    set(KEY_DN_MODE, 1);
    set(KEY_HLC_SWITCH, 0);
    const double burnt = stats(settle(20), SceneRegion::FarZone).clipped;
    set(KEY_HLC_SWITCH, 1);
    set(KEY_HLC_STRG, 100);
    const double held = stats(settle(20), SceneRegion::FarZone).clipped;
    EXPECT_GT(burnt, 0.005);
    EXPECT_LT(held, burnt * 0.2);
}

TEST_F(SensorTest, ContrastUpSpreadsTheLevels) {
    set(KEY_CONTRAST, 50);
    const double usual = lumaSpread(stats(settle(), SceneRegion::GreyRamp));
    set(KEY_CONTRAST, 90);
    const double strong = lumaSpread(stats(settle(), SceneRegion::GreyRamp));
    EXPECT_GT(strong, usual * 1.2);
}

TEST_F(SensorTest, LinearGammaDarkensTheMidtones) {
    set(KEY_GAMMA, 0);
    const double standard = stats(settle(), SceneRegion::FlatGrey).mean;
    set(KEY_GAMMA, 1);
    const double linear = stats(settle(), SceneRegion::FlatGrey).mean;
    EXPECT_LT(linear, standard - 30.0);
}

TEST_F(SensorTest, StabilisationCalmsTheShake) {
    std::string error;
    ASSERT_TRUE(sensor().setShake(16.0, error)) << error;
    const auto movement = [&] {
        double sum = 0;
        sim::Frame last = settle(1);
        for (int i = 0; i < 6; ++i) {
            const sim::Frame next = sensor().renderFrame();
            sum += std::fabs(stats(next, SceneRegion::Window).mean -
                             stats(last, SceneRegion::Window).mean);
            last = next;
        }
        return sum;
    };
    set(KEY_ANTI_SHAKE_SWITCH, 0);
    const double shaky = movement();
    set(KEY_ANTI_SHAKE_SWITCH, 1);
    set(KEY_ANTI_SHAKE_STRG, 100);
    const double steady = movement();
    EXPECT_LT(steady, shaky * 0.5);
}

// At 2x the point (0.6, 0.35) of the 1x view, on the grey ramp, appears at
// (0.7, 0.2). Manual exposure, so that both pictures are exposed alike.
TEST_F(SensorTest, ZoomMagnifiesAboutTheCentre) {
    set(KEY_EXPOSE_MODE, 3);
    const auto meanAround = [](const Frame& frame, double u, double v, int half) {
        const int x = static_cast<int>(u * frame.width);
        const int y = static_cast<int>(v * frame.height);
        return sim::measureFrame(frame, x - half, y - half / 2, 2 * half, half).mean;
    };
    const Frame wide = settle(3);
    ASSERT_TRUE(cam.ctl->setZoomValue(24576)); // 2x
    const Frame tele = settle(3);
    const double onRamp = meanAround(wide, 0.6, 0.35, 3);
    EXPECT_NEAR(meanAround(tele, 0.7, 0.2, 6), onRamp, 6.0);
    // Where the 1x view shows the ramp, the 2x view shows something else.
    EXPECT_GT(std::fabs(meanAround(tele, 0.6, 0.35, 6) - onRamp), 20.0);
}

} // namespace
} // namespace vstest
