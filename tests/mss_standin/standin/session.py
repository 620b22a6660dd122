"""One client connection: login, then requests until the client goes away."""
import itertools
import logging
import struct
import threading

from . import login, packets, rpc, tokens
from .fixture import key
from .results import Done, EnvChange, Message, QueryError, ResultSet, RowCount
from .sqltypes import SqlType
from .bulk import BulkTable

log = logging.getLogger("standin")
_spids = itertools.count(51)
_spid_lock = threading.Lock()


class Context:
    """Session state that handlers read and change."""

    def __init__(self, server, user, database, spid, odbc):
        self.server, self.user, self.database, self.spid = server, user, database, spid
        default = server.default_textsize
        if default is None:
            default = None if odbc else 4096
        self.textsize = default        # bytes; None means unlimited (2147483647)
        self.nocount = False
        self.trancount = 0
        self.rowcount = 0
        self.prepared = {}
        self._handles = itertools.count(1)

    def textsize_value(self):
        return 2147483647 if self.textsize is None else self.textsize

    def use(self, name):
        db = self.server.database(name)
        if db is None:
            raise QueryError(911, f"Database '{name}' does not exist. Make sure that the name is entered "
                                  "correctly.", 16, 1)
        if not self.user.may_open(db.name):
            raise QueryError(916, f'The server principal "{self.user.name}" is not able to access the '
                                  f'database "{db.name}" under the current security context.', 14, 2)
        old, self.database = self.database, db.name
        return [EnvChange(tokens.ENV_DATABASE, db.name, old),
                Message(5701, f"Changed database context to '{db.name}'.", 0, 2), Done()]

    def prepare(self, definitions, stmt):
        handle = next(self._handles)
        self.prepared[handle] = (definitions, stmt)
        return handle


class Session:
    def __init__(self, sock, server, dispatcher):
        self.sock = sock
        self.server = server
        self.dispatcher = dispatcher
        with _spid_lock:
            self.spid = next(_spids)
        self.packet_size = 4096
        self.ctx = None

    # -- framing helpers -----------------------------------------------------------------
    def writer(self):
        return packets.ResponseWriter(self.sock, self.packet_size, self.spid)

    def reply(self, payload):
        w = self.writer()
        w.write(payload)
        w.finish()

    # -- life cycle ------------------------------------------------------------------------
    def run(self):
        try:
            if not self.handshake():
                return
            while True:
                ptype, payload = packets.read_message(self.sock)
                self.request(ptype, payload)
        except (packets.ConnectionClosed, ConnectionError, BrokenPipeError):
            pass

    def handshake(self):
        ptype, payload = packets.read_message(self.sock)
        if ptype == packets.PRELOGIN:
            login.parse_prelogin(payload)
            self.reply(login.prelogin_reply(self.server.product_version))
            ptype, payload = packets.read_message(self.sock)
        if ptype != packets.LOGIN7:
            log.warning("expected LOGIN7, got packet type 0x%02X", ptype)
            return False
        req = login.Login7(payload)
        user = self.server.users.get(key(req.user))
        if user is None or user.password != req.password:
            self.reply(login.login_failed(self.server.name, req.user))
            return False
        dbname = req.database or user.default_database or "master"
        db = self.server.database(dbname)
        if db is None or not user.may_open(db.name):
            self.reply(login.cannot_open_database(self.server.name, req.user, dbname))
            return False
        if 512 <= req.packet_size <= 32767:
            self.packet_size = req.packet_size
        self.ctx = Context(self.server, user, db.name, self.spid, req.odbc)
        self.reply(login.login_reply(self.server, db.name, self.packet_size))
        log.info("spid %d: %s logged in to %s (odbc=%s)", self.spid, user.name, db.name, req.odbc)
        return True

    def request(self, ptype, payload):
        if ptype == packets.SQL_BATCH:
            total = struct.unpack_from("<I", payload, 0)[0] if len(payload) >= 4 else 0
            text = payload[total:].decode("utf-16-le", errors="replace")
            log.debug("spid %d batch: %s", self.spid, text)
            self.batch(text)
        elif ptype == packets.RPC:
            self.rpc(payload)
        elif ptype == packets.TRANSACTION_MANAGER:
            self.reply(tokens.done())
        elif ptype == packets.ATTENTION:
            log.info("spid %d: attention", self.spid)
            self.reply(tokens.done(tokens.DONE_ATTN))
        else:
            w = self.writer()
            w.write(tokens.error(50000, 1, 16, f"The stand-in does not handle packet type 0x{ptype:02X}.",
                                 self.server.name))
            w.write(tokens.done(tokens.DONE_ERROR))
            w.finish()

    # -- SQL batches -----------------------------------------------------------------------
    def batch(self, text):
        w = self.writer()
        out = _Output(self, w, tokens.DONE)
        try:
            stmts = self.dispatcher.statements(text)
            if not stmts:
                out.done(0, False)
            for stmt in stmts:
                outputs = self.dispatcher.run(self.ctx, stmt)
                if not out.emit(outputs):
                    break
        except QueryError as e:
            out.error(e)
        except (ConnectionError, packets.ConnectionClosed):
            raise
        except Exception as e:  # a fault of the stand-in: report it to the client, keep the session
            log.exception("batch failed: %s", text)
            out.error(QueryError(50000, f"Stand-in internal error: {type(e).__name__}: {e}"))
        out.finish()

    # -- RPC -------------------------------------------------------------------------------
    def rpc(self, payload):
        w = self.writer()
        out = _Output(self, w, tokens.DONEINPROC)
        try:
            calls = rpc.parse(payload)
        except rpc.RpcError as e:
            out.error(QueryError(8009, f"The incoming tabular data stream (TDS) remote procedure call "
                                       f"(RPC) protocol stream is incorrect. {e}", 16, 1), token=tokens.DONEPROC)
            out.finish()
            return
        for call in calls:
            log.debug("spid %d rpc %s %r", self.spid, call.name, call.params)
            try:
                if not self.call(call, out, w):
                    break
            except QueryError as e:
                out.error(e, token=tokens.DONEPROC)
            except (ConnectionError, packets.ConnectionClosed):
                raise
            except Exception as e:  # a fault of the stand-in: report it, keep the session
                log.exception("rpc %s failed", call.name)
                out.error(QueryError(50000, f"Stand-in internal error: {type(e).__name__}: {e}"),
                          token=tokens.DONEPROC)
        out.finish()

    def call(self, call, out, w):
        """Runs one procedure: its results, RETURNSTATUS, the handle of a prepare, DONEPROC.
        False when the client cancelled."""
        args = [(p.name or None, p.value) for p in call.params]
        handle = None
        results = []
        for o in self.dispatcher.call(self.ctx, call.name, args):
            if isinstance(o, tuple) and o[0] == "handle":
                handle = o[1]
            else:
                results.append(o)
        if not out.emit(results):
            return False
        out.flush_pending()
        w.write(tokens.returnstatus(0))
        if handle is not None:
            name = call.params[0].name if call.params and call.params[0].name else ""
            w.write(tokens.returnvalue(0, name, SqlType("int"), handle))
        out.done(0, False, token=tokens.DONEPROC)
        return True


class _Output:
    """Writes handler outputs as tokens; the last DONE of a response has no MORE bit."""

    def __init__(self, session, writer, done_token):
        self.s, self.w, self.done_token = session, writer, done_token
        self.pending = None

    def flush_pending(self, more=True):
        if self.pending is not None:
            status, count, token = self.pending
            self.w.write(tokens.done(status | (tokens.DONE_MORE if more else 0), 0xC1 if count else 0,
                                     count, token))
            self.pending = None

    def done(self, count, counted, token=None, error=False):
        self.flush_pending()
        status = (tokens.DONE_COUNT if counted and not self.s.ctx.nocount else 0) | \
                 (tokens.DONE_ERROR if error else 0)
        if self.s.ctx.trancount:
            status |= tokens.DONE_INXACT
        self.pending = (status, count, token or self.done_token)

    def emit(self, outputs):
        """Writes outputs; False when the client cancelled."""
        srv = self.s.server.name
        ctx = self.s.ctx
        for o in outputs:
            if isinstance(o, ResultSet):
                self.flush_pending()
                self.w.write(tokens.colmetadata([(c.name, c.type, c.flags, c.table_parts) for c in o.columns]))
                types = [c.type for c in o.columns]
                textsize = ctx.textsize
                n = 0
                for row in o.rows:
                    self.w.write(bytes([tokens.ROW]) + b"".join(
                        t.encode(v, textsize if t.is_long else None) for t, v in zip(types, row)))
                    n += 1
                    if self.w.cancelled:
                        return False
                ctx.rowcount = n
                self.done(n, True)
            elif isinstance(o, BulkTable):
                self.flush_pending()
                self.w.flush()
                n = o.stream(self.s, self.w)
                if self.w.cancelled:
                    return False
                ctx.rowcount = n
                self.done(n, True)
            elif isinstance(o, RowCount):
                ctx.rowcount = o.count
                self.done(o.count, True)
            elif isinstance(o, Done):
                self.done(0, False)
            elif isinstance(o, Message):
                self.w.write((tokens.error if o.klass > 10 else tokens.info)(
                    o.number, o.state, o.klass, o.text, srv))
            elif isinstance(o, EnvChange):
                self.w.write(tokens.envchange(o.kind, o.new, o.old))
        return True

    def error(self, e, token=None):
        self.flush_pending()
        self.w.write(tokens.error(e.number, e.state, e.klass, e.text, self.s.server.name))
        self.done(0, False, token=token, error=True)

    def finish(self):
        if self.w.cancelled:
            log.info("spid %d: attention", self.s.spid)
            self.pending = None
            self.w.write(tokens.done(tokens.DONE_ATTN))
        else:
            if self.pending is None:
                self.done(0, False)
            self.flush_pending(more=False)
        self.w.finish()
