"""A session manager as desktops under X11 have one (XSMP), for one program. libSM speaks the protocol; a program that runs
under X11 has it anyhow."""
import ctypes
import select

_SAVE_BOTH, _INTERACT_ANY = 2, 2
_ALL = 0x3FF  # of the callbacks below

_Pointer, _Int, _Status = ctypes.c_void_p, ctypes.c_int, ctypes.c_int
_Allow = ctypes.CFUNCTYPE(_Int, ctypes.c_char_p)
_Gone = ctypes.CFUNCTYPE(None, _Pointer)
_NewClient = ctypes.CFUNCTYPE(_Status, _Pointer, _Pointer, ctypes.POINTER(ctypes.c_ulong), _Pointer, _Pointer)
# Of struct SmsCallbacks, in its order: each a function and what it is given.
_CALLBACKS = {
    "registered": ctypes.CFUNCTYPE(_Status, _Pointer, _Pointer, _Pointer),
    "wants_to_interact": ctypes.CFUNCTYPE(None, _Pointer, _Pointer, _Int),
    "has_interacted": ctypes.CFUNCTYPE(None, _Pointer, _Pointer, _Int),
    "wants_to_save": ctypes.CFUNCTYPE(None, _Pointer, _Pointer, _Int, _Int, _Int, _Int, _Int),
    "wants_second_phase": ctypes.CFUNCTYPE(None, _Pointer, _Pointer),
    "has_saved": ctypes.CFUNCTYPE(None, _Pointer, _Pointer, _Int),
    "closes": ctypes.CFUNCTYPE(None, _Pointer, _Pointer, _Int, _Pointer),
    "sets": ctypes.CFUNCTYPE(None, _Pointer, _Pointer, _Int, _Pointer),
    "deletes": ctypes.CFUNCTYPE(None, _Pointer, _Pointer, _Int, _Pointer),
    "asks": ctypes.CFUNCTYPE(None, _Pointer, _Pointer),
}


class _Callbacks(ctypes.Structure):
    _fields_ = [field for name, kind in _CALLBACKS.items() for field in ((name, kind), (name + "_data", _Pointer))]


class SessionManager:
    """Does what it has to whenever serve() is called. Saving is what a program does at the end of a session."""

    def __init__(self):
        self._ice, self._sm = ctypes.CDLL("libICE.so.6"), ctypes.CDLL("libSM.so.6")
        for function in (self._ice.IceAcceptConnection, self._ice.IceComposeNetworkIdList):
            function.restype = _Pointer
        self._program, self._wires = None, []
        self.has_saved = 0  # how often
        self._callbacks = _Callbacks(**{name: kind(getattr(self, "_" + name, self._nothing)) for name, kind in _CALLBACKS.items()})
        self._allow, self._new = _Allow(lambda _host: 1), _NewClient(self._new_client)
        self._gone = _Gone(lambda _wire: None)  # the library's own would end the process
        self._ice.IceSetIOErrorHandler(self._gone)
        error = ctypes.create_string_buffer(256)
        sockets, count = ctypes.POINTER(_Pointer)(), _Int()
        if not (self._sm.SmsInitialize(b"test", b"1", self._new, None, self._allow, 256, error)
                and self._ice.IceListenForConnections(ctypes.byref(count), ctypes.byref(sockets), 256, error)):
            raise OSError(error.value.decode())
        self._sockets = [_Pointer(sockets[i]) for i in range(count.value)]
        for socket in self._sockets:
            self._ice.IceSetHostBasedAuthProc(socket, self._allow)
        self.address = ctypes.string_at(self._ice.IceComposeNetworkIdList(count, sockets)).decode()
        self._all = count, sockets

    @staticmethod
    def _nothing(*_arguments):
        return 1

    def _new_client(self, program, _data, mask, callbacks, _reason):
        mask[0] = _ALL
        ctypes.memmove(callbacks, ctypes.byref(self._callbacks), ctypes.sizeof(_Callbacks))
        return 1

    def _registered(self, program, _data, _before):
        self._sm.SmsRegisterClientReply(_Pointer(program), b"1")
        self._program = _Pointer(program)
        return 1

    def _wants_to_interact(self, program, _data, _kind):
        self._sm.SmsInteract(_Pointer(program))

    def _wants_second_phase(self, program, _data):
        self._sm.SmsSaveYourselfPhase2(_Pointer(program))

    def _has_saved(self, _program, _data, _success):
        self.has_saved += 1

    def serve(self):
        """Deals with all that has come. Returns whether the program is there."""
        def ready(numbers):
            return select.select(numbers, [], [], 0)[0]
        for socket in self._sockets:
            if ready([self._ice.IceGetListenConnectionNumber(socket)]):
                status = _Int()
                wire = self._ice.IceAcceptConnection(socket, ctypes.byref(status))
                if wire:
                    self._wires.append(_Pointer(wire))
        for wire in list(self._wires):
            while wire in self._wires and ready([self._ice.IceConnectionNumber(wire)]):
                if self._ice.IceProcessMessages(wire, None, None) != 0:  # it has gone
                    self._wires.remove(wire)
        return self._program is not None

    def end(self):
        """Asks whether the session may end."""
        self._sm.SmsSaveYourself(self._program, _SAVE_BOTH, 1, _INTERACT_ANY, 0)
        self._flush()

    def cancel(self):
        """It does not end after all."""
        self._sm.SmsShutdownCancelled(self._program)
        self._flush()

    def die(self):
        """It ends."""
        self._sm.SmsDie(self._program)
        self._flush()

    def _flush(self):
        for wire in self._wires:
            self._ice.IceFlush(wire)

    def close(self):
        self._ice.IceFreeListenObjs(*self._all)
