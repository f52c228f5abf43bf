"""Reads a whole trend database, format 1 or 2, as docs/trend-database.md describes it.

It is written from that document alone and shares no code with libtrend, so that a test can compare
the two. It looks at every byte that the document describes, and raises Damaged if anything is not
as the document says.
"""

import bisect
import contextlib
import math
import pathlib
import sqlite3
import struct
from typing import NamedTuple

APPLICATION_ID = 0x54524E44
TIME_BITS = 40
SEGMENT_BITS = 16

# The struct letter of the codes of a column of decimal numbers, by the column's first byte.
CODES = {2: "B", 3: "H", 4: "I"}
# The struct letter of the steps between timestamps, by their size.
STEPS = {1: "B", 2: "H", 4: "I", 8: "Q"}


class Damaged(Exception):
    """The database is not as the document says. The text says where."""


class Row(NamedTuple):
    time: int
    valid_ratio: float
    values: list  # by slot; None is a missing value, and so is a slot after the last


class Parameter(NamedTuple):
    path: str
    statistics: int
    first_slot: int


class Device(NamedTuple):
    path: str
    description: str
    parameters: list
    series: dict  # of the minutes of a series: its rows, the oldest first


class Block(NamedTuple):
    series: int
    last_time: int
    number: int
    first_time: int
    previous: int
    rows: int
    bytes: int
    segment_size: int
    change: int
    content: bytes
    checksum: int


def expect(is_so, what):
    if not is_so:
        raise Damaged(what)


def crc_table():
    table = []
    for entry in range(256):
        for _ in range(8):
            entry = entry >> 1 ^ (0x82F63B78 if entry & 1 else 0)
        table.append(entry)
    return table


CRC_TABLE = crc_table()


def crc32c(data):
    crc = 0xFFFFFFFF
    for byte in data:
        crc = CRC_TABLE[(crc ^ byte) & 0xFF] ^ crc >> 8
    return crc ^ 0xFFFFFFFF


def i64(*numbers):
    return struct.pack(f">{len(numbers)}q", *numbers)


def length_and_text(text):
    return struct.pack(">I", len(text)) + text


def without_nans(numbers):
    return [None if math.isnan(number) else number for number in numbers]


class Bytes:
    """Takes a blob apart from its start."""

    def __init__(self, blob):
        self.rest = blob

    def take(self, count):
        expect(len(self.rest) >= count, "a blob ends early")
        taken, self.rest = self.rest[:count], self.rest[count:]
        return taken

    def numbers(self, form):
        return struct.unpack(">" + form, self.take(struct.calcsize(">" + form)))

    def end(self):
        expect(not self.rest, "a blob has bytes after its end")


def decode_column(data, rows):
    """Returns the values of an encoded column."""
    data = Bytes(data)
    (kind,) = data.numbers("B")
    if kind == 0:
        values = [None] * rows
    elif kind == 1:
        values = without_nans(data.numbers("d")) * rows
    elif kind in CODES:
        places, base = data.numbers("Bq")
        expect(places <= 15 and abs(base) <= 2**53, "a column has a wrong base")
        codes = data.numbers(f"{rows}{CODES[kind]}")
        missing = 256 ** struct.calcsize(">" + CODES[kind]) - 1
        expect(
            all(code == missing or int(float(base + code)) == base + code for code in codes),
            "a column has a number that no f64 holds",
        )
        values = [None if code == missing else (base + code) / 10**places for code in codes]
    else:
        expect(kind in (5, 6), "a column has an unknown encoding")
        values = without_nans(data.numbers(f"{rows}{'f' if kind == 5 else 'd'}"))
    data.end()
    return values


def decode_times(data, block):
    data = Bytes(data)
    size, base = data.numbers("BQ")
    expect(size == 0 or size in STEPS, "the timestamps of a block have a wrong size")
    further = block.rows - 1
    steps = data.numbers(f"{further}{STEPS[size]}") if size else [0] * further
    data.end()
    times = [block.first_time]
    for step in steps:
        expect(base + step > 0, "the timestamps of a block do not ascend")
        times.append(times[-1] + base + step)
    expect(times[-1] == block.last_time, "a block ends at another time")
    return times


class Reader:
    """Reads one database, in one transaction."""

    def __init__(self, db):
        self.db = db
        self.db.text_factory = bytes
        self.db.execute("BEGIN")
        self.version = self.pragma("user_version")
        expect(self.pragma("application_id") == APPLICATION_ID, "this is not a trend database")
        expect(self.version in (1, 2), "the version is unknown")

    def pragma(self, name):
        return self.db.execute("PRAGMA " + name).fetchone()[0]

    def rows(self, table, columns):
        return self.db.execute(f"SELECT {columns} FROM {table} ORDER BY id").fetchall()

    def read(self):
        self.read_catalogue()
        series = {row[0]: [] for row in self.series}
        if self.version == 1:
            for row_id, valid_ratio, samples in self.rows("snapshot", "id, valid_ratio, samples"):
                self.add(series, row_id >> TIME_BITS, self.loose_row(row_id, valid_ratio, samples))
        else:
            self.read_database_row()
            self.read_copied()
            self.read_loose_rows(series)
            self.read_blocks(series)
            self.check_states(series)
        for rows in series.values():
            rows.sort(key=lambda row: row.time)
            times = [row.time for row in rows]
            expect(len(times) == len(set(times)), "two rows of a series have the same time")
        return [self.device(*row, series) for row in self.devices]

    def add(self, series, series_id, row):
        expect(series_id in series, "a row is in no series")
        series[series_id].append(row)

    # The catalogue

    def read_catalogue(self):
        self.devices = self.rows("device", "id, path, description")
        self.parameters = self.rows("parameter", "id, device_id, path, statistics, first_slot")
        self.series = self.rows("series", "id, device_id, minutes")
        ids = [row[0] for row in self.devices]
        expect(all(row[1] in ids for row in self.parameters + self.series), "a device is missing")

    def device(self, device_id, path, description, series):
        return Device(
            path.decode(),
            description.decode(),
            [Parameter(row[2].decode(), *row[3:]) for row in self.parameters if row[1] == device_id],
            {minutes: series[id] for id, owner, minutes in self.series if owner == device_id},
        )

    def catalogue_checksum(self):
        text = b""
        for letter, rows in ((b"d", self.devices), (b"p", self.parameters), (b"s", self.series)):
            for row in rows:
                text += letter
                for value in row:
                    text += i64(value) if isinstance(value, int) else length_and_text(value)
        return crc32c(text)

    def read_database_row(self):
        rows = self.rows("database", "uuid, next_block, catalogue, checksum")
        expect(len(rows) == 1, "there is not one row in the table database")
        uuid, self.next_block, catalogue, checksum = rows[0]
        expect(
            crc32c(length_and_text(uuid) + i64(self.next_block, catalogue)) == checksum,
            "the row of the table database is damaged",
        )
        expect(self.catalogue_checksum() == catalogue, "the catalogue is damaged")
        self.states = {
            row[0]: row[1:]
            for row in self.db.execute(
                "SELECT series_id, loose_rows, unchecked_until, first_block, last_block, blocks,"
                " sealed_rows, changes, checksum FROM series_state"
            )
        }
        expect(set(self.states) == {row[0] for row in self.series}, "a series has no state")
        for series_id, (*numbers, checksum) in self.states.items():
            expect(crc32c(i64(series_id, *numbers)) == checksum, "the state of a series is damaged")

    def read_copied(self):
        tables = self.db.execute("SELECT count(*) FROM sqlite_schema WHERE name = 'copied'")
        if not tables.fetchone()[0]:
            return
        for source, series_id, change, checksum in self.db.execute(
            "SELECT source, series_id, change, checksum FROM copied"
        ):
            expect(series_id in self.states, "something was copied into a series that is missing")
            covered = length_and_text(source) + i64(series_id, change)
            expect(crc32c(covered) == checksum, "the number of a copied change is damaged")

    # Rows

    def loose_row(self, row_id, valid_ratio, samples):
        expect(len(samples) % 8 == 0, "a loose row ends within a value")
        values = struct.unpack(f">{len(samples) // 8}d", samples)
        return Row(row_id % 2**TIME_BITS, valid_ratio, without_nans(values))

    def read_loose_rows(self, series):
        self.loose_rows = dict.fromkeys(series, 0)
        for row_id, valid_ratio, samples, checksum in self.rows(
            "loose", "id, valid_ratio, samples, checksum"
        ):
            row = self.loose_row(row_id, valid_ratio, samples)
            series_id = row_id >> TIME_BITS
            self.add(series, series_id, row)
            is_counted = row.time > self.states[series_id][1]
            self.loose_rows[series_id] += is_counted
            if checksum is not None or is_counted:
                covered = i64(row_id) + struct.pack(">d", valid_ratio) + samples
                expect(crc32c(covered) == checksum, "a loose row is damaged")

    def read_blocks(self, series):
        heads = self.rows(
            "block",
            "id, number, first_time, previous, rows, bytes, segment_size, change, content, checksum",
        )
        self.blocks = {series_id: [] for series_id in series}
        self.segments = dict(self.rows("segment", "id, data"))
        numbers = [head[1] for head in heads]
        expect(len(numbers) == len(set(numbers)), "two blocks have the same number")
        for row_id, *columns in heads:
            block = Block(row_id >> TIME_BITS, row_id % 2**TIME_BITS, *columns)
            expect(block.series in series, "a block is in no series")
            self.blocks[block.series].append(block)
            series[block.series] += self.rows_of_block(block)
        expect(not self.segments, "a segment is of no block")

    def rows_of_block(self, block):
        expect(
            crc32c(i64(*block[:9]) + block.content) == block.checksum, "a block's head is damaged"
        )
        expect(1 <= block.rows <= 512, "a block has a wrong number of rows")
        expect(1 <= block.segment_size < 2**32, "a block has a wrong segment size")
        expect(block.number < self.next_block, "a block has a number that is still free")
        content = Bytes(block.content)
        times = decode_times(content.take(*content.numbers("H")), block)
        valid_ratios = decode_column(content.take(*content.numbers("H")), block.rows)
        lengths = content.numbers(f"{len(content.rest) // 2}H")
        content.end()
        expect(sum(lengths) == block.bytes, "the columns of a block have another length")
        stored = Bytes(self.joined_segments(block))
        columns = [
            self.column(block, slot, stored.take(length)) for slot, length in enumerate(lengths)
        ]
        return [
            Row(times[i], valid_ratios[i], [column[i] for column in columns])
            for i in range(block.rows)
        ]

    def joined_segments(self, block):
        data = b""
        place = 0
        while len(data) < block.bytes:
            segment = self.segments.pop((block.number << SEGMENT_BITS) + place, b"")
            size = min(block.segment_size, block.bytes - len(data))
            expect(len(segment) == size > 0, "a segment is missing or has another length")
            data += segment
            place += 1
        return data

    def column(self, block, slot, stored):
        if not stored:
            return [None] * block.rows
        covered = i64(block.series, block.number) + struct.pack(">I", slot) + stored[4:]
        expect(Bytes(stored).numbers("I") == (crc32c(covered),), "a column is damaged")
        return decode_column(stored[4:], block.rows)

    def check_states(self, series):
        for series_id in series:
            loose, _, first, last, count, sealed, changes, _ = self.states[series_id]
            blocks = self.blocks[series_id]
            expect(self.loose_rows[series_id] == loose, "loose rows are missing")
            expect(len(blocks) == count, "blocks are missing")
            expect(sum(block.rows for block in blocks) == sealed, "sealed rows are missing")
            expect(all(block.change <= changes for block in blocks), "a block is from the future")
            ends = [0] + [block.last_time for block in blocks]
            expect(last == ends[-1], "the last block is missing")
            expect(first == ends[min(1, count)], "the first block is missing")
            for block, previous in zip(blocks, ends):
                expect(
                    block.previous == previous < block.first_time,
                    "the blocks of a series are not a chain",
                )


def read(path):
    """Returns the devices of the database at `path`, with all their rows.

    Raises Damaged if anything is not as docs/trend-database.md says.
    """
    try:
        address = pathlib.Path(path).absolute().as_uri() + "?mode=ro"
        with contextlib.closing(sqlite3.connect(address, uri=True, isolation_level=None)) as db:
            return Reader(db).read()
    except (sqlite3.Error, struct.error, TypeError, OverflowError, UnicodeError) as error:
        raise Damaged(str(error)) from error


def visible_rows(device, minutes):
    """Returns the rows of the intervals `minutes` that are not hidden, as (interval, row), the
    oldest first.
    """
    visible = []
    finer = []  # the times of the finer intervals
    for interval in sorted(set(minutes) & set(device.series)):
        rows = device.series[interval]
        for row in rows:
            place = bisect.bisect_right(finer, row.time)
            if place == 0 or finer[place - 1] <= row.time - 60 * interval:
                visible.append((interval, row))
        finer = sorted(finer + [row.time for row in rows])
    return sorted(visible, key=lambda pair: pair[1].time)
