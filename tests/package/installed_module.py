"""The installed Python module on its own tree: it must import without the
build tree (finding libsvcompose through its RUNPATH), make tables from the
installed example rig and convert numpy frames.

usage: installed_module.py TREE TABLES_DIR"""
import sys

import numpy as np

import svcompose

tree, out = sys.argv[1], sys.argv[2]
assert svcompose.__file__.startswith(tree), svcompose.__file__
t = svcompose.make_tables(tree + "/share/svcompose/rig-sedan.yaml", out, camera_size=(320, 180),
                          output_size=(320, 200))
with svcompose.Compositor(**t) as c:
    frames = np.random.default_rng(3).integers(0, 256, (4, 180, 320, 2), dtype=np.uint8)
    nv12 = c.convert(frames)
    assert nv12.shape == (300, 320) and nv12.dtype == np.uint8
    assert (nv12[:200] != 0).any(), "nothing was rendered"
print("svcompose from", svcompose.__file__)
