"""Three-exposure HDR merge of NV12 frames (varo_hdr) with the merge tool's loader and converter."""
import os
from typing import Optional, Sequence, Tuple, Union

import numpy as np
import numpy.typing as npt

__version__: str
MAX_WIDTH: int
MAX_HEIGHT: int

U8 = npt.NDArray[np.uint8]
# (h * 3 // 2, w) NV12, or (luma (h, w), chroma (h // 2, w) or (h // 2, w // 2, 2)).
Frame = Union[U8, Tuple[U8, U8]]
# Integer units used as given; floats (e.g. seconds) or "1/30,1/250,1/125" as the tool's --exposure-units.
Exposures = Union[Sequence[Union[int, float]], str]
PathLike = Union[str, "os.PathLike[str]"]

class MergeStatus:
    result: int
    outcome: str
    outcome_code: int
    reason: str
    reason_code: int
    fallback: bool
    registered: bool
    le_offset: Tuple[int, int]
    he_offset: Tuple[int, int]
    le_error_bits: int
    he_error_bits: int
    ghost_threshold: int
    le_motion: bool
    he_motion: bool
    working_size: Tuple[int, int]
    levels: int
    rect: Tuple[int, int, int, int]
    le_offset_reused: bool
    he_offset_reused: bool
    registration_us: int
    motion_us: int
    fusion_us: int
    weights_us: int
    total_us: int
    def as_dict(self) -> dict: ...

class MergeResult:
    @property
    def frame(self) -> Frame: ...
    @property
    def rect(self) -> Tuple[int, int, int, int]: ...
    @property
    def status(self) -> MergeStatus: ...
    def valid(self) -> Frame: ...

class Context:
    def __init__(self) -> None: ...
    def merge(self, he: Frame, le: Frame, ae: Frame, exposures: Exposures, *,
              exposure_scales: Optional[Sequence[float]] = None, in_place: bool = False) -> MergeResult: ...
    def close(self) -> None: ...
    @property
    def closed(self) -> bool: ...
    def __enter__(self) -> "Context": ...
    def __exit__(self, *args: object) -> None: ...

class Bracket:
    he: U8
    le: U8
    ae: U8
    frames: Tuple[U8, U8, U8]
    exposures: Tuple[int, int, int]
    exposure_source: str
    exposure_text: Tuple[str, str, str]
    files: Tuple[str, str, str]
    size: Tuple[int, int]
    description: str
    notes: list[str]
    orientation: int
    turned: bool
    decode_ms: float
    def upright(self, rgb: U8) -> U8: ...

def load_bracket(source: Union[None, PathLike, Sequence[PathLike]] = None, *, he: Optional[PathLike] = None,
                 le: Optional[PathLike] = None, ae: Optional[PathLike] = None,
                 exposures: Optional[Exposures] = None, size: Optional[Tuple[int, int]] = None) -> Bracket: ...
def rgb_to_nv12(rgb: U8) -> U8: ...
def nv12_to_rgb(frame: Frame) -> U8: ...
