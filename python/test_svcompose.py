"""The Python module against the library's own paths and the tool.

Run by ctest with PYTHONPATH at the built module; SVCOMPOSE_RIG names the
example rig and SVCOMPOSE_TOOL, when the tool was built, the svcompose program.
"""
import os
import subprocess

import numpy as np
import pytest

import svcompose

CAM, OUT, FRAMES = (320, 180), (320, 200), 3
IDENTITY = (np.full((4, 3), 1024), np.tile([64, 128, 192], (4, 3, 1)))


@pytest.fixture(scope="module")
def tables(tmp_path_factory):
    d = str(tmp_path_factory.mktemp("tables"))
    t = svcompose.make_tables(os.environ["SVCOMPOSE_RIG"], d, camera_size=CAM, output_size=OUT)
    assert t == dict(control=d + "/control.txt", statistics=d + "/statistics.txt",
                     setting=d + "/setting.txt", camera_size=CAM, output_size=OUT)
    return t


def frame_sets():
    rng = np.random.default_rng(5)
    return rng.integers(0, 256, (FRAMES, 4, CAM[1], CAM[0], 2), dtype=np.uint8)


def run(tables, convert):
    with svcompose.Compositor(**tables) as c:
        c.corrections = IDENTITY
        outs = [convert(c, f) for f in frame_sets()]
        assert c.frame == FRAMES
        return np.stack(outs), c.corrections


def test_every_form_gives_the_packed_bytes(tables, tmp_path):
    packed, corr = run(tables, lambda c, f: c.convert(f))
    # Four cameras with rows of their own stride, into a padded output.
    pad = np.zeros((4, CAM[1], CAM[0] + 7, 2), np.uint8)
    big = np.full((OUT[1] * 3 // 2, OUT[0] + 5), 77, np.uint8)
    big[:OUT[1], :OUT[0]], big[OUT[1]:, :OUT[0]] = 0, 128

    def strided(c, f):
        pad[:, :, :CAM[0]] = f
        return c.convert([pad[k, :, :CAM[0]] for k in range(4)], out=big[:, :OUT[0]]).copy()

    views, corr_views = run(tables, strided)
    assert np.array_equal(views, packed)
    assert all(np.array_equal(a, b) for a, b in zip(corr, corr_views))
    assert (big[:, OUT[0]:] == 77).all()
    luma = packed[:, :OUT[1]]
    assert 0 < (luma == 0).sum() < luma.size  # rendered, with the vehicle left as background

    tool = os.environ.get("SVCOMPOSE_TOOL")
    if not tool:
        pytest.skip("the tool was not built")
    frame_sets().tofile(tmp_path / "in.yuyv")
    subprocess.run([tool, "run", "--ctrl", tables["control"], "--stat", tables["statistics"],
                    "--setting", tables["setting"], "--in", str(tmp_path / "in.yuyv"),
                    "--size", "320x180", "--format", "nv12", "--out", str(tmp_path)],
                   check=True, capture_output=True)
    assert np.array_equal(np.fromfile(tmp_path / "out.nv12", np.uint8), packed.ravel())


def test_refusals_carry_the_library_messages(tables):
    c = svcompose.Compositor(**tables)
    with pytest.raises(svcompose.Error, match=r"^svcompose keeps one rig per process and another "
                       r"Compositor is open: close\(\) it \(or leave its with-block\) first$"):
        svcompose.Compositor(**tables)
    frames = frame_sets()[0]
    with pytest.raises(ValueError, match=r"^frames: camera 2 has shape \(180, 159, 2\), expected \(180, 320, 2\)$"):
        c.convert([frames[0], frames[1], frames[2, :, :159], frames[3]])
    with pytest.raises(TypeError, match=r"^frames: camera 0 has dtype int16, expected uint8 YUYV$"):
        c.convert([f.astype(np.int16) for f in frames])
    gain, tcurve = IDENTITY
    with pytest.raises(svcompose.Error, match=r"^error! sv_set_corrections: tone-curve level 5 is 300, "
                       r"outside 0\.\.255$"):
        c.corrections = (gain, np.where(np.arange(36).reshape(4, 3, 3) == 5, 300, tcurve))
    c.close()
    with pytest.raises(svcompose.Error, match="^this Compositor is closed$"):
        c.convert(frames)
    bad = dict(tables, control="missing.txt")
    with pytest.raises(svcompose.Error) as e:
        svcompose.Compositor(**bad)
    assert str(e.value) == "Load table file error!\nRead setting file missing.txt error!"
    with svcompose.Compositor(**tables) as again:  # the failed one left nothing open
        assert not again.closed
    assert again.closed
