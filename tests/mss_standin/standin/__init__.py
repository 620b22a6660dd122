"""A SQL Server stand-in that speaks TDS 7.4 for tests.

The package is split by concern: packets (framing), tokens (response tokens),
sqltypes (column types and their wire encodings), temporal and spatial (value
formats), fixture (the JSON model of databases), engine (SQL over sqlite),
dispatcher (statement routing), catalog (procedures and views answered from the
fixture), bulk (pre-encoded generated tables), login and session (one client).
"""
