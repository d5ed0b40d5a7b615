"""The library's result codes as one exception class."""

# E_ReturnValue, with the meanings the public header gives them.
MEANINGS = {
    0: "success",
    1: "USB device not found or not opened",
    2: "not connected (no successful connect, or the addressed transport is not open)",
    3: "read failed or timed out, or a frame was short or malformed",
    4: "write to the transport failed",
    5: "no new frame since the last call for this transport",
    6: "handle already initialised",
    7: "null or closed handle",
    -1: "bad argument or failed step",
}


class VyxError(Exception):
    """A Vyx_ function answered with a result code other than success (and
    other than 5, no new frame, which the wrappers return as None).

    code: the result code; meaning: what it means; function: the Vyx_ name."""

    def __init__(self, code, function=""):
        self.code = int(code)
        self.meaning = MEANINGS.get(self.code, "unknown result code")
        self.function = function
        where = f"{function}: " if function else ""
        super().__init__(f"{where}result {self.code}, {self.meaning}")
