"""What a handler answers: result sets, row counts, messages, environment changes."""
from .sqltypes import SqlType


class QueryError(Exception):
    """An error the server reports with an ERROR token (number, state, class, text)."""

    def __init__(self, number, text, klass=16, state=1):
        super().__init__(text)
        self.number, self.text, self.klass, self.state = number, text, klass, state


def invalid_object(name):
    return QueryError(208, f"Invalid object name '{name}'.", 16, 1)


class Column:
    def __init__(self, name, sqltype, nullable=True, table_parts=None, identity=False):
        self.name = name
        self.type = sqltype if sqltype is None or isinstance(sqltype, SqlType) else SqlType(sqltype)
        self.nullable = nullable
        self.table_parts = table_parts
        self.identity = identity

    @property
    def flags(self):
        f = 0x0008  # updatable: unknown
        if self.nullable:
            f |= 0x0001
        if self.identity:
            f |= 0x0010
        return f


class ResultSet:
    """Columns and rows of canonical values (see sqltypes)."""

    def __init__(self, columns, rows):
        self.columns, self.rows = columns, rows


class RowCount:
    """A statement that touched rows without returning them."""

    def __init__(self, count):
        self.count = count


class Done:
    """A statement with no result and no count (SET, USE, ...)."""


class Message:
    def __init__(self, number, text, klass=0, state=1):
        self.number, self.text, self.klass, self.state = number, text, klass, state


class EnvChange:
    def __init__(self, kind, new, old):
        self.kind, self.new, self.old = kind, new, old


class Stream:
    """A result written by a producer straight into the response (bulk mode).

    write(session, writer) must write COLMETADATA and rows and return the row count."""

    def __init__(self, write):
        self.write = write


class ReturnStatus:
    def __init__(self, value):
        self.value = value


class ReturnValue:
    def __init__(self, ordinal, name, sqltype, value):
        self.ordinal, self.name, self.type, self.value = ordinal, name, sqltype, value
