"""The varo_hdr Python module: the tool's bytes, argument errors, threads, leaks."""
import gc
import json
import os
import subprocess
import sys
import threading
import time

import numpy as np
import pytest

import varo_hdr

DATA = os.environ.get("VARO_HDR_DATA_DIR", os.path.join(os.path.dirname(__file__), "../../../shared/data/brackets"))
TOOL = os.path.abspath(os.environ["VARO_HDR_MERGE"]) if os.environ.get("VARO_HDR_MERGE") else ""


@pytest.fixture(scope="module")
def ctx():
    with varo_hdr.Context() as c:
        yield c


@pytest.fixture(scope="module")
def bracket():
    # The tool's built-in bracket at its own size: a camera shift to register.
    return varo_hdr.load_bracket()


def small(b, w=256, h=192):
    """A crop of each frame (packed NV12, C-contiguous) with the scene still shifted."""
    W, H = b.size
    out = []
    for f in b.frames:
        y, uv = f[:H], f[H:]
        out.append(np.ascontiguousarray(np.concatenate([y[:h, :w], uv[: h // 2, :w]])))
    return out


def planes(f):
    h = f.shape[0] * 2 // 3
    return f[:h], f[h:]


# ---------------------------------------------------------------- the tool's bytes

REAL_SETS = [
    # (name, tool arguments after the binary, load_bracket arguments)
    ("memorial_church", ["--bracket", "{d}/memorial_church"], lambda d: dict(source=f"{d}/memorial_church")),
    ("sculpture_garden_people", ["--bracket", "{d}/sculpture_garden_people"],  # ghost masks
     lambda d: dict(source=f"{d}/sculpture_garden_people")),
    ("pingpong_handheld", ["--bracket", "{d}/pingpong_handheld"],  # registration fails: the AE frame
     lambda d: dict(source=f"{d}/pingpong_handheld")),
    # EXIF exposures and roles, orientation 8, fitted into a small box.
    ("iphonexr_night_street",
     ["{d}/iphonexr_night_street/IMG_3872.jpeg", "{d}/iphonexr_night_street/IMG_3874.jpeg",
      "{d}/iphonexr_night_street/IMG_3876.jpeg", "--size", "1008x756"],
     lambda d: dict(source=[f"{d}/iphonexr_night_street/IMG_387{i}.jpeg" for i in (6, 2, 4)], size=(1008, 756))),
]


@pytest.mark.parametrize("name,tool_args,load_args", REAL_SETS, ids=[s[0] for s in REAL_SETS])
def test_merge_equals_tool(ctx, tmp_path, name, tool_args, load_args):
    if not os.path.isdir(os.path.join(DATA, name)):
        pytest.skip(f"real bracket set {name} not present")
    if not TOOL:
        pytest.skip("VARO_HDR_MERGE (the tool) not given")
    out, report = tmp_path / "x.nv12", tmp_path / "x.json"
    args = [a.format(d=DATA) for a in tool_args]
    subprocess.run([TOOL, *args, "--out", str(out), "--json", str(report)], check=True, capture_output=True)
    rep = json.loads(report.read_text())

    b = varo_hdr.load_bracket(**load_args(DATA))
    assert b.exposures == tuple(rep["frames"][k]["units"] for k in ("he", "le", "ae"))
    r = ctx.merge(*b.frames, b.exposures)
    s = r.status
    assert r.valid().tobytes() == out.read_bytes()
    assert s.outcome == rep["outcome"] and s.reason == rep["reason"]
    assert s.le_offset == (rep["offsets"]["le"]["x"], rep["offsets"]["le"]["y"])
    assert s.he_offset == (rep["offsets"]["he"]["x"], rep["offsets"]["he"]["y"])
    assert (s.le_error_bits, s.he_error_bits) == (rep["offsets"]["le"]["error_bits"], rep["offsets"]["he"]["error_bits"])
    assert (s.le_motion, s.he_motion) == (bool(rep["ghost"]["le_flag"]), bool(rep["ghost"]["he_flag"]))
    assert r.rect == tuple(rep["rectangle"][k] for k in ("x", "y", "width", "height"))
    assert s.working_size + (s.levels,) == tuple(rep["working_size"][k] for k in ("width", "height", "levels"))
    if name == "iphonexr_night_street":
        # Stored portrait, merged a quarter clockwise from that; EXIF orientation 8 shows it a
        # quarter counter-clockwise from storage: half a turn from the merge.
        assert b.orientation == 8 and b.turned and b.size == (1008, 756)
        rgb = varo_hdr.nv12_to_rgb(r.valid())
        assert np.array_equal(b.upright(rgb), rgb[::-1, ::-1])


# ---------------------------------------------------------------- one picture, every form

def test_forms_and_inputs_untouched(ctx, bracket):
    he, le, ae = small(bracket)
    ref = ctx.merge(he, le, ae, bracket.exposures)
    assert ref.status.outcome.startswith("merged")
    assert ref.frame.shape == he.shape and not np.array_equal(ref.frame, he)
    before = [a.copy() for a in (he, le, ae)]

    def strided(f):  # every other row of a wider array: rows not at pitch = width
        wide = np.zeros((f.shape[0] * 2, f.shape[1] + 32), np.uint8)
        wide[::2, 16:-16] = f
        return wide[::2, 16:-16]

    def pairs(f):
        y, uv = planes(f)
        return y, uv.reshape(uv.shape[0], -1, 2)

    forms = {
        "strided": (strided, lambda r: r.frame),
        "planes": (planes, lambda r: np.concatenate(r.frame)),
        "pairs": (pairs, lambda r: np.concatenate([r.frame[0], r.frame[1].reshape(r.frame[1].shape[0], -1)])),
        "strided planes": (lambda f: tuple(strided(p) for p in planes(f)), lambda r: np.concatenate(r.frame)),
        "floats": (lambda f: f, lambda r: r.frame),
    }
    for name, (form, packed) in forms.items():
        exposures = (16 / 30, 1 / 30, 4 / 30) if name == "floats" else bracket.exposures
        r = ctx.merge(form(he), form(le), form(ae), exposures)
        assert np.array_equal(packed(r), ref.frame), name
        assert r.rect == ref.rect, name
    for a, b in zip((he, le, ae), before):
        assert np.array_equal(a, b)

    # In place: the HE array itself receives the same picture.
    he2 = he.copy()
    r = ctx.merge(he2, le, ae, bracket.exposures, in_place=True)
    assert r.frame is he2 and np.array_equal(he2, ref.frame)
    assert np.array_equal(r.valid(), ref.valid())


def test_rgb_conversion():
    # BT.601 full range within the converter's rounding; a swapped channel or
    # chroma pair is off by far more.
    colours = np.array([(255, 0, 0), (0, 255, 0), (0, 0, 255), (30, 200, 90), (128, 128, 128)], np.float64)
    rgb = np.repeat(np.repeat(colours[None, :, :], 2, axis=1), 3, axis=0).astype(np.uint8)  # 3 x 10: odd height
    nv12 = varo_hdr.rgb_to_nv12(rgb)
    assert nv12.shape == (3, 10)  # cropped to 10x2
    r, g, b = colours.T
    y = 0.299 * r + 0.587 * g + 0.114 * b
    cb = 128 - 0.168736 * r - 0.331264 * g + 0.5 * b
    cr = 128 + 0.5 * r - 0.418688 * g - 0.081312 * b
    assert np.abs(nv12[0, ::2] - y).max() <= 1
    assert np.abs(nv12[2, 0::2] - np.minimum(cb, 255)).max() <= 1
    assert np.abs(nv12[2, 1::2] - np.minimum(cr, 255)).max() <= 1
    back = varo_hdr.nv12_to_rgb(nv12)
    assert back.shape == (2, 10, 3) and np.abs(back.astype(int) - rgb[:2].astype(int)).max() <= 2


# ---------------------------------------------------------------- refused, never crashed

def frames(w=128, h=96):
    return [np.full((h * 3 // 2, w), v, np.uint8) for v in (200, 40, 120)]


def with_he(he):
    return lambda f: ([he] + f[1:], (4, 1, 2), {})


def with_exp(e, **kw):
    return lambda f: (f, e, kw)


def shared_he_ae(f):
    return [f[2], f[1], f[2]], (4, 1, 2), {"in_place": True}


def read_only_he(f):
    f[0].flags.writeable = False
    return f, (4, 1, 2), {"in_place": True}


ERRORS = [
    ("float32 frame", with_he(np.zeros((144, 128), np.float32)), ValueError, "uint8"),
    ("int16 frame", with_he(np.zeros((144, 128), np.int16)), ValueError, "uint8"),
    ("list, not array", with_he([[0] * 128] * 144), ValueError, "ndarray"),
    ("3-d packed", with_he(np.zeros((144, 128, 1), np.uint8)), ValueError, "shape"),
    ("rows not h*3/2", with_he(np.zeros((145, 128), np.uint8)), ValueError, "shape"),
    ("odd width", lambda f: ([np.zeros((144, 127), np.uint8)] * 3, (4, 1, 2), {}), ValueError, "even"),
    ("odd height", lambda f: ([(np.zeros((95, 128), np.uint8), np.zeros((47, 128), np.uint8))] * 3, (4, 1, 2), {}),
     ValueError, "even"),
    ("empty", lambda f: ([np.zeros((0, 128), np.uint8)] * 3, (4, 1, 2), {}), ValueError, "empty"),
    ("too wide", lambda f: ([np.zeros((6, 4162), np.uint8)] * 3, (4, 1, 2), {}), ValueError, "4160x3120"),
    ("too tall", lambda f: ([np.zeros((3122 * 3 // 2, 8), np.uint8)] * 3, (4, 1, 2), {}), ValueError, "4160x3120"),
    ("sizes differ", with_he(np.zeros((96 * 3 // 2, 64), np.uint8)), ValueError, "differ"),
    ("forms mixed", lambda f: ([planes(f[0])] + f[1:], (4, 1, 2), {}), ValueError, "all three"),
    ("chroma shape", lambda f: ([(planes(x)[0], planes(x)[1][:, :64]) for x in f], (4, 1, 2), {}), ValueError,
     "chroma"),
    ("two exposures", with_exp((4, 1)), ValueError, "three"),
    ("nan exposure", with_exp((4.0, float("nan"), 2.0)), ValueError, "finite"),
    ("inf exposure", with_exp((float("inf"), 1.0, 2.0)), ValueError, "finite"),
    ("zero exposure", with_exp((4, 0, 2)), ValueError, "1 .."),
    ("negative exposure", with_exp((4.0, -1.0, 2.0)), ValueError, "positive"),
    ("bool exposure", with_exp((True, 1, 2)), ValueError, "not a number"),
    ("exposure text", with_exp("4,1,x"), ValueError, "not an exposure"),
    ("product beyond int32", with_exp((4_000_000_000, 1, 2)), ValueError, "2^31"),
    ("nan scale", with_exp((4, 1, 2), exposure_scales=(1.0, float("nan"), 1.0)), ValueError, "finite"),
    ("zero scale", with_exp((4, 1, 2), exposure_scales=(1.0, 0.0, 1.0)), ValueError, "positive"),
    ("in place, read-only", read_only_he, ValueError, "read-only"),
    ("in place, strided", lambda f: ([np.zeros((288, 128), np.uint8)[::2]] + f[1:], (4, 1, 2), {"in_place": True}),
     ValueError, "C-contiguous"),
    ("in place, HE is AE", shared_he_ae, ValueError, "shares memory"),
]


@pytest.mark.parametrize("name,make,exc,msg", ERRORS, ids=[e[0] for e in ERRORS])
def test_refused(ctx, name, make, exc, msg):
    f = frames()
    kept = [a.copy() for a in f]
    args, exposures, kw = make(f)
    with pytest.raises(exc, match=msg.replace("^", r"\^")):
        ctx.merge(*args, exposures, **kw)
    for a, b in zip(f, kept):
        assert np.array_equal(a, b)
    # The context is still good afterwards.
    f[0].flags.writeable = True
    assert ctx.merge(*f, (4, 1, 2)).status.result == 0


def test_closed_and_loader_errors(tmp_path):
    c = varo_hdr.Context()
    c.close()
    c.close()
    with pytest.raises(RuntimeError, match="closed"):
        c.merge(*frames(), (4, 1, 2))
    with pytest.raises(ValueError, match="meta.json"):
        varo_hdr.load_bracket(str(tmp_path))
    with pytest.raises(ValueError, match="three"):
        varo_hdr.load_bracket([str(tmp_path / "a.png")] * 2)
    with pytest.raises(ValueError, match="cannot open"):
        varo_hdr.load_bracket(he=tmp_path / "a.png", le=tmp_path / "b.png", ae=tmp_path / "c.png",
                              exposures=(4, 1, 2))


# ---------------------------------------------------------------- threads

def test_contexts_on_threads_match_serial(ctx, bracket):
    # Each thread its own context and its own crop of the scene.
    jobs = [small(bracket, 256 + 64 * i, 192 + 32 * i) for i in range(3)]
    serial = [ctx.merge(*j, bracket.exposures).frame for j in jobs]
    results, errors, loaded = [[] for _ in jobs], [], []

    def run(i):
        try:
            # Loading runs in parallel too (the GIL is released there as well).
            loaded.append(all(np.array_equal(a, b) for a, b in zip(varo_hdr.load_bracket().frames, bracket.frames)))
            with varo_hdr.Context() as c:
                for _ in range(4):
                    results[i].append(c.merge(*jobs[i], bracket.exposures).frame)
        except Exception as e:  # reported below, not lost in the thread
            errors.append(e)

    threads = [threading.Thread(target=run, args=(i,)) for i in range(len(jobs))]
    for t in threads:
        t.start()
    for t in threads:
        t.join()
    assert not errors and loaded == [True] * len(jobs)
    for i, ref in enumerate(serial):
        assert len(results[i]) == 4 and all(np.array_equal(r, ref) for r in results[i])


def test_busy_context_refuses_a_second_merge_and_close(bracket):
    # Both can only be tried while the running merge has let go of the GIL.
    he, le, ae = bracket.frames
    with varo_hdr.Context() as c:
        ref = c.merge(he, le, ae, bracket.exposures).frame
        stop, out = threading.Event(), []

        def loop():
            while not stop.is_set():
                out.append(c.merge(he, le, ae, bracket.exposures).frame)

        t = threading.Thread(target=loop)
        t.start()
        refused = {"merge": 0, "close": 0}
        try:
            deadline = time.monotonic() + 10
            while time.monotonic() < deadline:
                try:
                    if refused["merge"] < 3:
                        c.merge(he, le, ae, bracket.exposures)
                    else:
                        c.close()
                except RuntimeError as e:
                    kind = "merge" if "already running" in str(e) else "close"
                    assert kind == "merge" or "merge is running" in str(e), str(e)
                    refused[kind] += 1
                if refused["close"] >= 3 or c.closed:
                    break
        finally:
            stop.set()
            t.join()
        assert refused == {"merge": 3, "close": 3}
        assert out and all(np.array_equal(r, ref) for r in out)


# ---------------------------------------------------------------- leaks

def rss_kb():
    with open("/proc/self/statm") as f:
        return int(f.read().split()[1]) * os.sysconf("SC_PAGE_SIZE") // 1024


def test_no_leak_over_1000_merges(ctx, bracket):
    he, le, ae = small(bracket, 128, 96)
    exposures = bracket.exposures
    counts = [sys.getrefcount(a) for a in (he, le, ae, exposures)]
    for _ in range(100):
        ctx.merge(he, le, ae, exposures).valid()
    gc.collect()
    before = rss_kb()
    for i in range(1000):
        r = ctx.merge(planes(he) if i & 1 else he, planes(le) if i & 1 else le, planes(ae) if i & 1 else ae,
                      exposures)
        r.valid()
        r.status.as_dict()
    del r
    gc.collect()
    grown = rss_kb() - before
    assert [sys.getrefcount(a) for a in (he, le, ae, exposures)] == counts
    # 1,000 leaked outputs alone would be 18 MB.
    assert grown < 4096, f"RSS grew {grown} kB"
