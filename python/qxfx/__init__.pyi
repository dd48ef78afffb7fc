from typing import Any, Dict, List, Literal, Optional, Sequence, Tuple, Union

Range = Literal["", "video", "full"]
Matrix = Literal["", "bt601", "bt709", "bt2020"]
Value = Union[float, Sequence[float]]

__version__: str

class Error(RuntimeError): ...
class EffectError(Error): ...
class DeviceError(Error): ...

class Frame:
    def __init__(
        self,
        array: Any,
        *,
        format: str = "",
        width: int = 0,
        height: int = 0,
        range: Range = "",
        matrix: Matrix = "",
    ) -> None: ...
    @property
    def format(self) -> str: ...
    @property
    def width(self) -> int: ...
    @property
    def height(self) -> int: ...
    @property
    def range(self) -> Literal["video", "full"]: ...
    @property
    def matrix(self) -> Literal["bt601", "bt709", "bt2020"]: ...
    @property
    def shape(self) -> Tuple[int, ...]: ...
    def __buffer__(self, flags: int) -> memoryview: ...
    def __dlpack__(self, stream: Any = None, **options: Any) -> Any: ...
    def __dlpack_device__(self) -> Tuple[int, int]: ...

class Parameter:
    @property
    def name(self) -> str: ...
    @property
    def type(self) -> str: ...
    @property
    def default(self) -> List[float]: ...
    @property
    def minimum(self) -> Optional[float]: ...
    @property
    def maximum(self) -> Optional[float]: ...
    @property
    def label(self) -> str: ...

class Step:
    def __call__(
        self,
        frame: Any,
        *,
        target: str = "",
        range: Range = "",
        matrix: Matrix = "",
        number: int = 0,
        seconds: float = 0.0,
        rate: float = 0.0,
        **inputs: Any,
    ) -> Frame: ...
    @property
    def inputs(self) -> List[str]: ...
    @property
    def warnings(self) -> List[str]: ...

class Effect(Step):
    def __init__(
        self,
        file: str,
        technique: str = "",
        *,
        inputs: Sequence[str] = [],
        textures: Dict[str, str] = {},
        **parameters: Value,
    ) -> None: ...
    @property
    def techniques(self) -> List[str]: ...
    @property
    def parameters(self) -> List[Parameter]: ...
    def __setitem__(self, name: str, value: Value) -> None: ...

class Lut(Step):
    def __init__(self, file: str) -> None: ...

class Text(Step):
    def __init__(
        self,
        text: str,
        *,
        font: str = "",
        size: int = 0,
        position: Union[str, Tuple[int, int]] = "bottom",
        timecode: str = "",
        rate: int = 25,
        clip: str = "",
    ) -> None: ...

class Chain(Step):
    def __init__(self, *steps: Step) -> None: ...
    def set(self, effect: int, name: str, value: Value) -> None: ...

class Device:
    def __init__(self, name: str = "") -> None: ...
    @property
    def name(self) -> str: ...
    @property
    def is_software(self) -> bool: ...

def convert(
    frame: Any,
    target: str,
    *,
    format: str = "",
    width: int = 0,
    height: int = 0,
    range: Range = "",
    matrix: Matrix = "",
    target_range: Range = "",
    target_matrix: Matrix = "",
    filter: Literal["point", "catmullrom", "mitchell"] = "catmullrom",
) -> Frame: ...
