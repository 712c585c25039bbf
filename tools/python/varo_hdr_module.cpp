// The varo_hdr Python module: merge contexts over numpy NV12 frames, the
// merge status as Python values, and the merge tool's bracket loader and
// colour converter (through tool_calls.h).
#include <math.h>
#include <stdint.h>
#include <string.h>

#include <atomic>
#include <stdexcept>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

#include <pybind11/numpy.h>
#include <pybind11/pybind11.h>
#include <pybind11/stl.h>

#include "tool_calls.h"
#include "varo_hdr.h"

namespace py = pybind11;

namespace {

const char *const kRole[3] = {"HE", "LE", "AE"};

[[noreturn]] void value_error(const std::string &msg) { throw py::value_error(msg); }

std::string size_text(py::ssize_t w, py::ssize_t h) { return std::to_string(w) + "x" + std::to_string(h); }

// ------------------------------------------------------------ frames --

// One frame argument: an (h * 3 // 2, w) array, or a (luma, chroma) pair with
// luma (h, w) and chroma (h // 2, w) or (h // 2, w // 2, 2).
struct FrameArg {
    bool planes = false;
    int width = 0, height = 0;
    py::array luma, chroma;         // as given (planes) or the packed array twice
    py::array luma_c, chroma_c;     // rows of pitch width: the given arrays or copies
    std::vector<py::ssize_t> chroma_shape;
    const uint8_t *y = nullptr, *uv = nullptr;
};

py::array as_uint8_array(const py::handle &obj, const std::string &what) {
    if (!py::isinstance<py::array>(obj))
        value_error(what + ": expected a numpy.ndarray of uint8, got " + std::string(py::str(obj.get_type())));
    py::array a = py::reinterpret_borrow<py::array>(obj);
    if (a.dtype().kind() != 'u' || a.itemsize() != 1)
        value_error(what + ": dtype must be uint8, got " + std::string(py::str(a.dtype())));
    return a;
}

// The array itself when its rows are packed at pitch = width, otherwise a
// C-contiguous copy (the library's pitch is the width).
py::array packed_rows(const py::array &a) {
    if (a.flags() & py::array::c_style) return a;
    return py::array_t<uint8_t, py::array::c_style>::ensure(a);
}

// Limits: the library's for a merge, only sanity for a conversion.
void check_size(const std::string &what, py::ssize_t w, py::ssize_t h, bool merge) {
    if (w <= 0 || h <= 0) value_error(what + ": empty frame " + size_text(w, h));
    if ((w | h) & 1) value_error(what + ": width and height must be even, got " + size_text(w, h));
    if (!merge && (w > 100000 || h > 100000)) value_error(what + ": frame " + size_text(w, h) + " is too large");
    if (merge && (w > VARO_HDR_MAX_WIDTH || h > VARO_HDR_MAX_HEIGHT))
        value_error(what + ": frame " + size_text(w, h) + " is beyond the library's " +
                    size_text(VARO_HDR_MAX_WIDTH, VARO_HDR_MAX_HEIGHT) +
                    " (turn a portrait frame a quarter first)");
}

FrameArg frame_arg(const py::handle &obj, const std::string &what, bool merge) {
    FrameArg f;
    if (py::isinstance<py::tuple>(obj) || py::isinstance<py::list>(obj)) {
        const py::sequence seq = py::reinterpret_borrow<py::sequence>(obj);
        if (seq.size() != 2)
            value_error(what + ": expected an NV12 numpy.ndarray or a (luma, chroma) pair of them, got a " +
                        std::string(py::str(obj.get_type().attr("__name__"))) + " of " + std::to_string(seq.size()));
        f.planes = true;
        f.luma = as_uint8_array(seq[0], what + " luma");
        f.chroma = as_uint8_array(seq[1], what + " chroma");
        if (f.luma.ndim() != 2) value_error(what + " luma: expected shape (h, w), got ndim " + std::to_string(f.luma.ndim()));
        const py::ssize_t h = f.luma.shape(0), w = f.luma.shape(1);
        check_size(what, w, h, merge);
        const bool pairs = f.chroma.ndim() == 3 && f.chroma.shape(0) == h / 2 && f.chroma.shape(1) == w / 2 &&
                           f.chroma.shape(2) == 2;
        const bool rows = f.chroma.ndim() == 2 && f.chroma.shape(0) == h / 2 && f.chroma.shape(1) == w;
        if (!pairs && !rows) {
            std::string shape;
            for (py::ssize_t d = 0; d < f.chroma.ndim(); ++d) shape += (d ? ", " : "") + std::to_string(f.chroma.shape(d));
            value_error(what + " chroma: expected shape (" + std::to_string(h / 2) + ", " + std::to_string(w) +
                        ") or (" + std::to_string(h / 2) + ", " + std::to_string(w / 2) + ", 2) for a " +
                        size_text(w, h) + " luma plane, got (" + shape + ")");
        }
        f.width = (int)w;
        f.height = (int)h;
        f.chroma_shape.assign(f.chroma.shape(), f.chroma.shape() + f.chroma.ndim());
        f.luma_c = packed_rows(f.luma);
        f.chroma_c = packed_rows(f.chroma);
        f.y = (const uint8_t *)f.luma_c.data();
        f.uv = (const uint8_t *)f.chroma_c.data();
        return f;
    }
    py::array a = as_uint8_array(obj, what);
    if (a.ndim() != 2 || a.shape(0) % 3 != 0)
        value_error(what + ": expected an NV12 array of shape (h * 3 // 2, w) or a (luma, chroma) pair");
    const py::ssize_t h = a.shape(0) / 3 * 2, w = a.shape(1);
    check_size(what, w, h, merge);
    f.width = (int)w;
    f.height = (int)h;
    f.luma = f.chroma = a;
    f.luma_c = f.chroma_c = packed_rows(a);
    f.y = (const uint8_t *)f.luma_c.data();
    f.uv = f.y + (size_t)w * h;
    return f;
}

// A fresh frame: one packed buffer (luma then chroma, as camera buffers are
// laid out), handed out as (luma, chroma) views of it when the caller's
// frames came as planes.
struct OutFrame {
    py::array packed;
    py::object frame; // what the caller gets: the packed array or (luma, chroma)
    uint8_t *y = nullptr, *uv = nullptr;
};

OutFrame out_frame(int width, int height, bool planes, const std::vector<py::ssize_t> &chroma_shape) {
    OutFrame o;
    o.packed = py::array_t<uint8_t>({(py::ssize_t)height * 3 / 2, (py::ssize_t)width});
    o.y = (uint8_t *)o.packed.mutable_data();
    o.uv = o.y + (size_t)width * height;
    if (!planes) {
        o.frame = o.packed;
        return o;
    }
    const py::array luma(py::dtype::of<uint8_t>(), std::vector<py::ssize_t>{height, width}, o.y, o.packed);
    const py::array chroma(py::dtype::of<uint8_t>(), chroma_shape, o.uv, o.packed);
    o.frame = py::make_tuple(luma, chroma);
    return o;
}

bool overlaps(const uint8_t *a, size_t an, const uint8_t *b, size_t bn) { return a < b + bn && b < a + an; }

// ------------------------------------------------------------ exposures --

// Units per frame: integers as given; anything else through the tool's
// --exposure-units rule, so (1/30, 1/250, 1/125) merges as the tool merges it.
void exposure_units(const py::handle &obj, uint32_t units[3]) {
    std::string err;
    if (py::isinstance<py::str>(obj)) {
        if (!varo_py::parse_exposures(obj.cast<std::string>(), units, &err)) value_error("exposures: " + err);
        return;
    }
    if (!py::isinstance<py::sequence>(obj) || py::len(obj) != 3)
        value_error("exposures: expected three numbers (HE, LE, AE) or a string such as \"1/30,1/250,1/125\"");
    const py::sequence seq = py::reinterpret_borrow<py::sequence>(obj);
    bool integers = true;
    double v[3];
    for (int f = 0; f < 3; ++f) {
        const py::object e = seq[f];
        if (py::isinstance<py::bool_>(e) || (!PyIndex_Check(e.ptr()) && !PyFloat_Check(e.ptr()) &&
                                              !PyObject_HasAttrString(e.ptr(), "__float__")))
            value_error(std::string("exposures: ") + kRole[f] + " is not a number: " + std::string(py::repr(e)));
        if (PyIndex_Check(e.ptr())) {
            const py::int_ i = py::reinterpret_steal<py::int_>(PyNumber_Index(e.ptr()));
            int overflow = 0;
            const long long n = PyLong_AsLongLongAndOverflow(i.ptr(), &overflow);
            if (overflow || n < 1 || n > 0xffffffffLL)
                value_error(std::string("exposures: ") + kRole[f] + " units must be 1 .. 4294967295, got " +
                            std::string(py::repr(i)));
            v[f] = (double)n;
        } else {
            integers = false;
            v[f] = e.cast<double>();
            if (!std::isfinite(v[f]) || !(v[f] > 0))
                value_error(std::string("exposures: ") + kRole[f] + " must be finite and positive, got " +
                            std::string(py::repr(e)));
        }
    }
    if (integers) {
        for (int f = 0; f < 3; ++f) units[f] = (uint32_t)v[f];
        return;
    }
    char text[128];
    snprintf(text, sizeof text, "%.17e,%.17e,%.17e", v[0], v[1], v[2]);
    if (!varo_py::parse_exposures(text, units, &err)) value_error("exposures: " + err);
}

void exposure_scales(const py::handle &obj, float scale[3]) {
    if (obj.is_none()) {
        for (int f = 0; f < 3; ++f) scale[f] = 1.0f;
        return;
    }
    if (!py::isinstance<py::sequence>(obj) || py::isinstance<py::str>(obj) || py::len(obj) != 3)
        value_error("exposure_scales: expected three numbers (HE, LE, AE)");
    const py::sequence seq = py::reinterpret_borrow<py::sequence>(obj);
    for (int f = 0; f < 3; ++f) {
        double d;
        try {
            d = seq[f].cast<double>();
        } catch (const py::cast_error &) {
            value_error(std::string("exposure_scales: ") + kRole[f] + " is not a number");
        }
        if (!std::isfinite(d) || !(d > 0) || !std::isfinite((float)d))
            value_error(std::string("exposure_scales: ") + kRole[f] + " must be finite and positive, got " +
                        std::to_string(d));
        scale[f] = (float)d;
    }
}

// ------------------------------------------------------------ status --

using StatusGetter = py::object (*)(const HdrMergeStatus &);
struct StatusField {
    const char *name;
    StatusGetter get;
    const char *doc;
};

py::tuple pair(HdrOffset o) { return py::make_tuple(o.x, o.y); }

template <class T> py::object to_py(const T &v) {
    if constexpr (std::is_base_of<py::handle, T>::value) return v;
    else return py::cast(v);
}

#define VARO_FIELD(name, doc, ...) \
    {name, [](const HdrMergeStatus &s) -> py::object { return to_py(__VA_ARGS__); }, doc}
const StatusField kStatusFields[] = {
    VARO_FIELD("result", "What the merge returned (0, or a negative error code).", s.result),
    VARO_FIELD("outcome", "Readable outcome: 'merged', a ghost-masked merge, a fallback, ...",
               std::string(hdrOutcomeName(s.outcome))),
    VARO_FIELD("outcome_code", "The HdrMergeOutcome number.", s.outcome),
    VARO_FIELD("reason", "Why the merge fell back to the reference frame; '' unless it did.",
               std::string(hdrFallbackReasonName(s.reason))),
    VARO_FIELD("reason_code", "The HdrFallbackReason number.", s.reason),
    VARO_FIELD("fallback", "True when the output is the AE frame.", s.outcome == HDR_OUTCOME_FALLBACK),
    VARO_FIELD("registered", "True once both offsets are this merge's.", s.registered != 0),
    VARO_FIELD("le_offset", "(x, y) shift of LE against AE.", pair(s.le_offset)),
    VARO_FIELD("he_offset", "(x, y) shift of HE against AE.", pair(s.he_offset)),
    VARO_FIELD("le_error_bits", "Registration error count of LE.", s.le_error_bits),
    VARO_FIELD("he_error_bits", "Registration error count of HE.", s.he_error_bits),
    VARO_FIELD("ghost_threshold", "Error count above which a side frame gets a motion mask.", s.ghost_threshold),
    VARO_FIELD("le_motion", "LE's error exceeded the ghost threshold.", s.le_flag != 0),
    VARO_FIELD("he_motion", "HE's error exceeded the ghost threshold.", s.he_flag != 0),
    VARO_FIELD("working_size", "(width, height) of the registered overlap; (0, 0) on a fallback.",
               py::make_tuple(s.width, s.height)),
    VARO_FIELD("levels", "Pyramid levels of the fusion.", s.levels),
    VARO_FIELD("rect", "(x, y, width, height) of the valid output rectangle.",
               py::make_tuple(s.out_x, s.out_y, s.out_width, s.out_height)),
    VARO_FIELD("le_offset_reused", "LE's offset search had no scratch block and reused the previous offset.",
               s.le_offset_reused != 0),
    VARO_FIELD("he_offset_reused", "HE's offset search had no scratch block and reused the previous offset.",
               s.he_offset_reused != 0),
    VARO_FIELD("registration_us", "Bitmaps, offset searches and shift check, microseconds.", s.registration_us),
    VARO_FIELD("motion_us", "Motion masks (or the plain copy), microseconds.", s.motion_us),
    VARO_FIELD("fusion_us", "Fusion (or the reference copy), microseconds.", s.fusion_us),
    VARO_FIELD("weights_us", "Part of fusion_us: the three weight maps, microseconds.", s.weights_us),
    VARO_FIELD("total_us", "The whole merge, microseconds.", s.total_us),
};
#undef VARO_FIELD

py::dict status_dict(const HdrMergeStatus &s) {
    py::dict d;
    for (const StatusField &f : kStatusFields) d[f.name] = f.get(s);
    return d;
}

// ------------------------------------------------------------ results --

struct MergeResult {
    py::object frame;
    HdrMergeStatus status{};
    int width = 0, height = 0;
    bool planes = false;
    std::vector<py::ssize_t> chroma_shape;
    const uint8_t *y = nullptr, *uv = nullptr; // the merged planes (pitch = width), owned by frame
};

py::object nv12_object(const uint8_t *luma, const uint8_t *chroma, int w, int h, bool planes,
                       const std::vector<py::ssize_t> &chroma_shape) {
    std::vector<py::ssize_t> cs = chroma_shape;
    if (planes) {
        if (cs.size() == 3) cs = {h / 2, w / 2, 2};
        else cs = {h / 2, w};
    }
    OutFrame o = out_frame(w, h, planes, cs);
    memcpy(o.y, luma, (size_t)w * h);
    memcpy(o.uv, chroma, (size_t)w * h / 2);
    return o.frame;
}

py::object valid_frame(const MergeResult &r) {
    HdrInput desc;
    memset(&desc, 0, sizeof desc);
    desc.frame[HE_IDX].luma = const_cast<uint8_t *>(r.y);
    desc.frame[HE_IDX].chroma = const_cast<uint8_t *>(r.uv);
    desc.width = r.width;
    desc.height = r.height;
    desc.out_x = r.status.out_x;
    desc.out_y = r.status.out_y;
    desc.out_width = r.status.out_width;
    desc.out_height = r.status.out_height;
    std::vector<uint8_t> y, uv;
    int w = 0, h = 0;
    std::string err;
    if (!varo_py::extract_valid(desc, &y, &uv, &w, &h, &err)) throw std::runtime_error(err);
    return nv12_object(y.data(), uv.data(), w, h, r.planes, r.chroma_shape);
}

// ------------------------------------------------------------ context --

class Context {
  public:
    Context() {
        int rc;
        {
            py::gil_scoped_release unlocked;
            rc = hdrCreateContext(&ctx_);
        }
        if (rc != 0 || !ctx_) {
            if (ctx_) hdrDestroyContext(ctx_);
            ctx_ = nullptr;
            state_ = CLOSED;
            PyErr_SetString(PyExc_MemoryError, ("varo_hdr.Context: cannot take the merge pool (about 430 MB), "
                                                "hdrCreateContext returned " + std::to_string(rc)).c_str());
            throw py::error_already_set();
        }
    }
    ~Context() {
        if (ctx_) hdrDestroyContext(ctx_);
    }
    Context(const Context &) = delete;
    Context &operator=(const Context &) = delete;

    void close() {
        int expected = IDLE;
        if (state_.compare_exchange_strong(expected, CLOSED)) {
            HdrContext *c = ctx_;
            ctx_ = nullptr;
            py::gil_scoped_release unlocked;
            hdrDestroyContext(c);
        } else if (expected == BUSY) {
            throw std::runtime_error("varo_hdr.Context.close: a merge is running on this context");
        }
    }
    bool closed() const { return state_.load() == CLOSED; }

    MergeResult merge(const py::object &he, const py::object &le, const py::object &ae, const py::object &exposures,
                      const py::object &scales, bool in_place) {
        // One merge at a time: a second caller is refused, never queued
        // behind (or interleaved with) the running one.
        int expected = IDLE;
        if (!state_.compare_exchange_strong(expected, BUSY)) {
            if (expected == CLOSED) throw std::runtime_error("varo_hdr.Context: the context is closed");
            throw std::runtime_error("varo_hdr.Context: a merge is already running on this context "
                                     "(one merge at a time per context; use one Context per thread)");
        }
        struct Idle {
            std::atomic<int> &s;
            ~Idle() { s.store(IDLE); }
        } idle{state_};

        FrameArg f[3];
        const py::handle obj[3] = {he, le, ae};
        for (int i = 0; i < 3; ++i) f[i] = frame_arg(obj[i], kRole[i], true);
        for (int i = 0; i < 2; ++i) {
            if (f[i].planes != f[AE_IDX].planes)
                value_error("frames: give all three as NV12 arrays or all three as (luma, chroma) pairs");
            if (f[i].width != f[AE_IDX].width || f[i].height != f[AE_IDX].height)
                value_error(std::string("frames differ in size: ") + kRole[i] + " " +
                            size_text(f[i].width, f[i].height) + ", AE " + size_text(f[AE_IDX].width, f[AE_IDX].height));
        }
        const int w = f[AE_IDX].width, h = f[AE_IDX].height;
        const size_t ny = (size_t)w * h, nuv = ny / 2;

        HdrInput desc;
        memset(&desc, 0, sizeof desc);
        uint32_t units[3];
        float scale[3];
        exposure_units(exposures, units);
        exposure_scales(scales, scale);
        for (int i = 0; i < 3; ++i) {
            // The library truncates scale * units to a 32-bit integer.
            const float product = scale[i] * (float)units[i];
            if (!(product >= 1.0f && product < 2147483648.0f))
                value_error(std::string("exposures: ") + kRole[i] + " scale x units is " + std::to_string(product) +
                            "; it must lie in 1 .. 2^31 - 1");
            desc.exposure[i].exposure_scale = scale[i];
            desc.exposure[i].exposure_units = units[i];
        }

        MergeResult r;
        r.width = w;
        r.height = h;
        r.planes = f[HE_IDX].planes;
        r.chroma_shape = f[HE_IDX].chroma_shape;
        uint8_t *out_y, *out_uv;
        if (in_place) {
            // The caller's HE arrays themselves, so they must be writable
            // rows of pitch width that no other input shares.
            for (const py::array *a : {&f[HE_IDX].luma, &f[HE_IDX].chroma})
                if (!a->writeable()) value_error("in_place: the HE frame is read-only");
            if (f[HE_IDX].luma_c.ptr() != f[HE_IDX].luma.ptr() ||
                f[HE_IDX].chroma_c.ptr() != f[HE_IDX].chroma.ptr())
                value_error("in_place: the HE frame must be C-contiguous (rows of pitch width)");
            out_y = (uint8_t *)f[HE_IDX].y;
            out_uv = (uint8_t *)f[HE_IDX].uv;
            if (overlaps(out_y, ny, out_uv, nuv)) value_error("in_place: the HE luma and chroma planes overlap");
            for (int i = 1; i < 3; ++i)
                if (overlaps(out_y, ny, f[i].y, ny) || overlaps(out_y, ny, f[i].uv, nuv) ||
                    overlaps(out_uv, nuv, f[i].y, ny) || overlaps(out_uv, nuv, f[i].uv, nuv))
                    value_error(std::string("in_place: the HE frame shares memory with ") + kRole[i]);
            r.frame = r.planes ? py::object(py::make_tuple(f[HE_IDX].luma, f[HE_IDX].chroma))
                               : py::object(f[HE_IDX].luma);
        } else {
            OutFrame o = out_frame(w, h, r.planes, r.chroma_shape);
            out_y = o.y;
            out_uv = o.uv;
            r.frame = o.frame;
        }
        r.y = out_y;
        r.uv = out_uv;
        desc.frame[HE_IDX].luma = out_y;
        desc.frame[HE_IDX].chroma = out_uv;
        for (int i = 1; i < 3; ++i) {
            desc.frame[i].luma = (uint8_t *)f[i].y;
            desc.frame[i].chroma = (uint8_t *)f[i].uv;
        }
        desc.width = w;
        desc.height = h;

        int rc;
        r.status.struct_size = sizeof r.status;
        {
            py::gil_scoped_release unlocked;
            if (!in_place) {
                memcpy(out_y, f[HE_IDX].y, ny);
                memcpy(out_uv, f[HE_IDX].uv, nuv);
            }
            rc = hdrThreeFrameCore(ctx_, &desc);
            hdrGetMergeStatus(ctx_, &r.status);
        }
        if (rc != VARO_HDR_OK)
            throw std::runtime_error("varo_hdr.Context.merge: the library returned " + std::to_string(rc) + " (" +
                                     hdrOutcomeName(r.status.outcome) + "); nothing was written");
        return r;
    }

  private:
    enum { IDLE, BUSY, CLOSED };
    HdrContext *ctx_ = nullptr;
    std::atomic<int> state_{IDLE};
};

// ------------------------------------------------------------ brackets --

struct Bracket {
    py::array frame[3];
    varo_py::LoadedBracket info; // its nv12[] moved out into frame[]
};

std::string fspath(const py::handle &p) {
    const py::object s = py::module_::import("os").attr("fspath")(p);
    if (!py::isinstance<py::str>(s)) value_error("paths must be str or os.PathLike of str");
    return s.cast<std::string>();
}

Bracket load_bracket(const py::object &source, const py::object &he, const py::object &le, const py::object &ae,
                     const py::object &exposures, const py::object &size) {
    varo_py::BracketRequest req;
    const bool roles = !he.is_none() || !le.is_none() || !ae.is_none();
    if (roles && !source.is_none()) value_error("load_bracket: give a source or he=, le=, ae=, not both");
    if (roles) {
        if (he.is_none() || le.is_none() || ae.is_none()) value_error("load_bracket: he=, le= and ae= go together");
        req.role_file[HE_IDX] = fspath(he);
        req.role_file[LE_IDX] = fspath(le);
        req.role_file[AE_IDX] = fspath(ae);
    } else if (!source.is_none()) {
        if (py::isinstance<py::str>(source) || py::hasattr(source, "__fspath__")) {
            req.folder = fspath(source);
        } else if (py::isinstance<py::sequence>(source)) {
            for (const py::handle &p : source) req.files.push_back(fspath(p));
            if (req.files.size() != 3) value_error("load_bracket: give three image files, not " +
                                                   std::to_string(req.files.size()));
        } else {
            value_error("load_bracket: source is a folder with meta.json or three image files");
        }
    }
    if (!exposures.is_none()) {
        if (py::isinstance<py::str>(exposures)) {
            req.exposures = exposures.cast<std::string>();
        } else {
            uint32_t u[3];
            exposure_units(exposures, u);
            req.exposures = std::to_string(u[0]) + "," + std::to_string(u[1]) + "," + std::to_string(u[2]);
        }
    }
    if (!size.is_none()) {
        py::ssize_t w = 0, h = 0;
        try {
            const auto wh = size.cast<std::pair<py::ssize_t, py::ssize_t>>();
            w = wh.first;
            h = wh.second;
        } catch (const py::cast_error &) {
            value_error("load_bracket: size is (width, height)");
        }
        if (w < 2 || h < 2 || w > 100000 || h > 100000 || ((w | h) & 1))
            value_error("load_bracket: size wants even (width, height), got " + size_text(w, h));
        req.box_width = (int)w;
        req.box_height = (int)h;
    }
    Bracket b;
    std::string err;
    bool ok;
    {
        py::gil_scoped_release unlocked;
        ok = varo_py::load_bracket(req, &b.info, &err);
    }
    if (!ok) value_error(err);
    const int w = b.info.width, h = b.info.height;
    for (int f = 0; f < 3; ++f) {
        auto *data = new std::vector<uint8_t>(std::move(b.info.nv12[f]));
        const py::capsule owner(data, [](void *p) { delete static_cast<std::vector<uint8_t> *>(p); });
        b.frame[f] = py::array(py::dtype::of<uint8_t>(), std::vector<py::ssize_t>{(py::ssize_t)h * 3 / 2, w},
                               data->data(), owner);
    }
    return b;
}

// ------------------------------------------------------------ colour --

py::array rgb_to_nv12(const py::handle &obj) {
    py::array a = as_uint8_array(obj, "rgb_to_nv12");
    if (a.ndim() != 3 || a.shape(2) != 3) value_error("rgb_to_nv12: expected an RGB array of shape (h, w, 3)");
    const py::ssize_t h = a.shape(0), w = a.shape(1);
    if (w < 2 || h < 2) value_error("rgb_to_nv12: the picture " + size_text(w, h) + " is smaller than 2x2");
    if (w > 100000 || h > 100000) value_error("rgb_to_nv12: the picture " + size_text(w, h) + " is too large");
    const py::array c = packed_rows(a);
    const int ew = (int)w & ~1, eh = (int)h & ~1;
    OutFrame o = out_frame(ew, eh, false, {});
    const uint8_t *src = (const uint8_t *)c.data();
    {
        py::gil_scoped_release unlocked;
        varo_py::rgb_to_nv12(src, (int)w, (int)h, o.y, o.uv);
    }
    return o.packed;
}

py::array nv12_to_rgb(const py::handle &obj) {
    const FrameArg f = frame_arg(obj, "nv12_to_rgb", false);
    py::array_t<uint8_t> out({(py::ssize_t)f.height, (py::ssize_t)f.width, (py::ssize_t)3});
    uint8_t *dst = out.mutable_data();
    {
        py::gil_scoped_release unlocked;
        varo_py::nv12_to_rgb(f.y, f.uv, f.width, f.height, dst);
    }
    return out;
}

py::array upright(const Bracket &b, const py::handle &obj) {
    py::array a = as_uint8_array(obj, "upright");
    if (a.ndim() != 3 || a.shape(2) != 3) value_error("upright: expected an RGB array of shape (h, w, 3)");
    if (a.shape(0) < 1 || a.shape(1) < 1) value_error("upright: empty picture");
    const py::array c = packed_rows(a);
    std::vector<uint8_t> rgb;
    int w = 0, h = 0;
    {
        py::gil_scoped_release unlocked;
        varo_py::upright_rgb((const uint8_t *)c.data(), (int)a.shape(1), (int)a.shape(0), b.info.turned,
                             b.info.orientation, &rgb, &w, &h);
    }
    py::array_t<uint8_t> out({(py::ssize_t)h, (py::ssize_t)w, (py::ssize_t)3});
    memcpy(out.mutable_data(), rgb.data(), rgb.size());
    return out;
}

py::tuple strings3(const std::string s[3]) { return py::make_tuple(s[0], s[1], s[2]); }

} // namespace

PYBIND11_MODULE(varo_hdr, m) {
    m.doc() = "Three-exposure HDR merge of NV12 frames (varo_hdr), with the merge tool's bracket loader "
              "and colour converter.\n\n"
              "Frames are numpy uint8 arrays: NV12 as one (h * 3 // 2, w) array (luma rows, then h // 2 rows "
              "of interleaved Cb, Cr), or a (luma (h, w), chroma (h // 2, w) or (h // 2, w // 2, 2)) pair. "
              "Exposures are given HE, LE, AE (over-, under-, normally exposed; AE is the reference).";
    m.attr("__version__") = hdrGetVersion();
    m.attr("MAX_WIDTH") = VARO_HDR_MAX_WIDTH;
    m.attr("MAX_HEIGHT") = VARO_HDR_MAX_HEIGHT;

    py::class_<HdrMergeStatus> status(m, "MergeStatus",
                                      "What one merge did: outcome and fallback reason, offsets, error counts, "
                                      "motion flags, working size, levels, output rectangle, stage times.");
    for (const StatusField &f : kStatusFields) {
        const StatusGetter get = f.get;
        status.def_property_readonly(f.name, [get](const HdrMergeStatus &s) { return get(s); }, f.doc);
    }
    status.def("as_dict", &status_dict, "All fields as a dict (for JSON or pandas).");
    status.def("__repr__", [](const HdrMergeStatus &s) {
        std::string t = "MergeStatus(";
        bool first = true;
        for (const StatusField &f : kStatusFields) {
            t += (first ? "" : ", ") + std::string(f.name) + "=" + std::string(py::repr(f.get(s)));
            first = false;
        }
        return t + ")";
    });

    py::class_<MergeResult>(m, "MergeResult", "The merged frame, its valid rectangle and the merge status.")
        .def_property_readonly("frame", [](const MergeResult &r) { return r.frame; },
                               "The whole merged frame, in the form the frames were given. Outside rect it "
                               "holds no picture.")
        .def_property_readonly("rect", [](const MergeResult &r) {
            return py::make_tuple(r.status.out_x, r.status.out_y, r.status.out_width, r.status.out_height);
        }, "(x, y, width, height) of the valid picture in frame.")
        .def_property_readonly("status", [](const MergeResult &r) { return r.status; }, "The MergeStatus.")
        .def("valid", &valid_frame,
             "The valid rectangle as a new frame (same form), cropped to even size: the bytes the merge "
             "tool writes with --out x.nv12.")
        .def("__repr__", [](const MergeResult &r) {
            return "MergeResult(" + size_text(r.width, r.height) + ", rect=" +
                   std::string(py::repr(py::make_tuple(r.status.out_x, r.status.out_y, r.status.out_width,
                                                       r.status.out_height))) +
                   ", outcome=" + hdrOutcomeName(r.status.outcome) + ")";
        });

    py::class_<Context>(m, "Context",
                        "A merge context: the library's memory pool (about 430 MB) taken once and reused by every "
                        "merge. One merge at a time per context; merges on different contexts run at once (the "
                        "GIL is released). Use it as a context manager, or call close().")
        .def(py::init<>())
        .def("merge", &Context::merge, py::arg("he"), py::arg("le"), py::arg("ae"), py::arg("exposures"),
             py::kw_only(), py::arg("exposure_scales") = py::none(), py::arg("in_place") = false,
             "merge(he, le, ae, exposures, *, exposure_scales=None, in_place=False) -> MergeResult\n\n"
             "Merges three NV12 frames of one size (even, at most 4160x3120). exposures: three integers "
             "(exposure units HE, LE, AE, used as given), three floats such as seconds (turned into integer "
             "units as the merge tool's --exposure-units does), or that option's text (\"1/30,1/250,1/125\"). "
             "exposure_scales: the descriptor's per-frame float scales (default 1.0). The inputs are never "
             "modified: the library writes into a copy of HE, unless in_place=True, when it writes into the "
             "HE arrays themselves (C-contiguous, writable, sharing no memory with LE or AE). Raises "
             "ValueError for bad frames or exposures, RuntimeError for a closed or busy context.")
        .def("close", &Context::close, "Frees the pool; later merges raise RuntimeError. Closing twice is fine.")
        .def_property_readonly("closed", &Context::closed, "True after close().")
        .def("__enter__", [](py::object self) { return self; })
        .def("__exit__", [](Context &c, const py::args &) { c.close(); });

    py::class_<Bracket>(m, "Bracket",
                        "Three frames loaded as the merge tool loads them, in the orientation it merges them in.")
        .def_property_readonly("he", [](const Bracket &b) { return b.frame[HE_IDX]; }, "HE frame, NV12 (h * 3 // 2, w).")
        .def_property_readonly("le", [](const Bracket &b) { return b.frame[LE_IDX]; }, "LE frame, NV12.")
        .def_property_readonly("ae", [](const Bracket &b) { return b.frame[AE_IDX]; }, "AE frame, NV12.")
        .def_property_readonly("frames", [](const Bracket &b) {
            return py::make_tuple(b.frame[HE_IDX], b.frame[LE_IDX], b.frame[AE_IDX]);
        }, "(he, le, ae), ready for Context.merge(*bracket.frames, bracket.exposures).")
        .def_property_readonly("exposures", [](const Bracket &b) {
            return py::make_tuple(b.info.units[HE_IDX], b.info.units[LE_IDX], b.info.units[AE_IDX]);
        }, "Integer exposure units (HE, LE, AE), as the tool would merge them.")
        .def_property_readonly("exposure_source", [](const Bracket &b) { return b.info.exposure_source; },
                               "'EXIF', 'meta.json', '--exposure-units' or 'built-in'.")
        .def_property_readonly("exposure_text", [](const Bracket &b) { return strings3(b.info.exposure_text); },
                               "What each exposure was made of (HE, LE, AE).")
        .def_property_readonly("files", [](const Bracket &b) { return strings3(b.info.file); }, "(HE, LE, AE) files.")
        .def_property_readonly("size", [](const Bracket &b) { return py::make_tuple(b.info.width, b.info.height); },
                               "(width, height) as merged.")
        .def_property_readonly("description", [](const Bracket &b) { return b.info.description; },
                               "Where the frames came from (files, a bracket folder, the built-in one).")
        .def_property_readonly("notes", [](const Bracket &b) { return b.info.notes; },
                               "Silent changes on the way (odd size cropped, turned, resampled, roles from EXIF).")
        .def_property_readonly("orientation", [](const Bracket &b) { return b.info.orientation; },
                               "EXIF orientation (1..8) of the AE file.")
        .def_property_readonly("turned", [](const Bracket &b) { return b.info.turned; },
                               "True when the frames were turned a quarter clockwise to fit the library.")
        .def_property_readonly("decode_ms", [](const Bracket &b) { return b.info.decode_ms; },
                               "Milliseconds spent loading and decoding.")
        .def("upright", &upright, py::arg("rgb"),
             "An RGB picture of this bracket (h, w, 3) turned as the tool turns its PNG/JPEG/TIFF outputs: "
             "back from the merge orientation and upright by the EXIF orientation.")
        .def("__repr__", [](const Bracket &b) {
            return "Bracket(" + b.info.description + ", " + size_text(b.info.width, b.info.height) + ", exposures " +
                   std::to_string(b.info.units[0]) + "/" + std::to_string(b.info.units[1]) + "/" +
                   std::to_string(b.info.units[2]) + " from " + b.info.exposure_source + ")";
        });

    m.def("load_bracket", &load_bracket, py::arg("source") = py::none(), py::kw_only(), py::arg("he") = py::none(),
          py::arg("le") = py::none(), py::arg("ae") = py::none(), py::arg("exposures") = py::none(),
          py::arg("size") = py::none(),
          "load_bracket(source=None, *, he=None, le=None, ae=None, exposures=None, size=None) -> Bracket\n\n"
          "Reads a bracket with the merge tool's own loader: source is a folder with meta.json, or three "
          "JPEG/PNG files whose EXIF exposures give the roles; or he=, le=, ae= name the roles. exposures "
          "overrides EXIF/meta.json (as --exposure-units); size=(w, h) fits the frames into that box (as "
          "--size; also the size of raw .nv12 files). No source: the tool's built-in bracket. Frames stored "
          "taller than the library's 4160x3120 are turned a quarter (see turned, upright()). Raises "
          "ValueError with the tool's message when something cannot be used.");
    m.def("rgb_to_nv12", &rgb_to_nv12, py::arg("rgb"),
          "rgb_to_nv12(rgb) -> ndarray\n\nThe merge tool's integer BT.601 full-range converter: (h, w, 3) uint8 "
          "RGB to an (h * 3 // 2, w) NV12 array (odd sizes cropped to even, chroma averaged over 2x2).");
    m.def("nv12_to_rgb", &nv12_to_rgb, py::arg("frame"),
          "nv12_to_rgb(frame) -> ndarray\n\nThe merge tool's converter back: an NV12 frame (array or (luma, "
          "chroma)) to (h, w, 3) uint8 RGB.");
}
