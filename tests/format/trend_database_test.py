"""Compares the databases that the programs write with their document.

usage: trend_database_test.py TRENDCSV TRENDLOAD TRENDTOOL DOCUMENT [unittest's arguments]

The reader of trend_database.py knows the document and nothing else. It must find exactly the rows
that were loaded, and refuse every database that was changed by hand.
"""

import contextlib
import csv
import datetime
import io
import math
import os
import pathlib
import random
import re
import sqlite3
import struct
import subprocess
import sys
import tempfile
import unittest

import trend_database

TRENDCSV, TRENDLOAD, TRENDTOOL, DOCUMENT = sys.argv[1:5]
STATISTICS = [".ValueIntMin", ".ValueIntMax", ".ValueIntAvg", "Value", ".ValueIntSum"]
START = 1_700_000_000
SPECIAL = [math.inf, -math.inf, 0.0, -0.0, 5e-324, -1.7976931348623157e308, 2.0**53, 0.1, 1e15 / 3]


class Log:
    """What a database must hold: rows by the device, the minutes and the time. The values of a row
    are by column name; a missing value is absent.
    """

    def __init__(self, folder, seed):
        self.path = str(pathlib.Path(folder) / "trend.db")
        self.random = random.Random(seed)
        self.rows = {}

    def column_names(self, count, start=0):
        """Returns the names of columns of parameters with one to three statistics."""
        names = []
        for param in range(start, start + count):
            for statistic in sorted(self.random.sample(range(5), self.random.randint(1, 3))):
                names.append(f"group/p{param}:{STATISTICS[statistic]}")
        return names

    def value(self, kind):
        """Returns a value, or None. Each kind makes another encoding likely."""
        if kind == 0:
            return 21.5
        if kind in (1, 2, 3):
            return self.random.randrange(-(100 ** kind), 100**kind) / 10**kind
        if kind == 4:
            return struct.unpack("f", struct.pack("f", self.random.uniform(-1e6, 1e6)))[0]
        if kind == 5:
            return self.random.choice(SPECIAL)
        return None if kind == 6 else self.random.gauss(0, 1000)

    def load(self, device, minutes, times, columns):
        """Loads rows of random values at these times, in this order."""
        kinds = {name: self.random.randrange(9) for name in columns}
        rows = self.rows.setdefault((device, minutes), {})
        out = io.StringIO()
        writer = csv.writer(out, lineterminator="\n")
        writer.writerow(["Date", "Time", "Percent Valid", *columns])
        for time in times:
            percent = self.random.choice(["100.00", "99.25", "0.00", "33.3"])
            values = {
                name: value
                for name in columns
                if self.random.random() > 0.02 and (value := self.value(kinds[name])) is not None
            }
            rows[time] = (float(percent) / 100, values)
            fields = [repr(values[name]) if name in values else "" for name in columns]
            writer.writerow([*text_of(time), percent, *fields])
        run(TRENDLOAD, "-x", self.path, "-d", device, "-i", str(minutes), "-u", "-t", "%F %T",
            input=out.getvalue())  # fmt: skip

    def purge(self, device, minutes, before):
        of_series = ["-x", self.path, "-d", device, "-i", str(minutes)]
        run(TRENDTOOL, "purge", *of_series, "--before", f"@{before}")
        rows = self.rows[device, minutes]
        self.rows[device, minutes] = {time: row for time, row in rows.items() if time >= before}

    def query(self, sql):
        with contextlib.closing(sqlite3.connect(self.path)) as db:
            return db.execute(sql).fetchall()

    def blocks(self):
        return self.query("SELECT first_time, id & 0xFFFFFFFFFF FROM block ORDER BY id")


def text_of(time):
    """Returns date and time as texts."""
    return str(datetime.datetime.fromtimestamp(time, datetime.timezone.utc))[:19].split(" ")


def run(*command, input=None, allowed=(0,)):
    done = subprocess.run(
        command, input=input, text=True, capture_output=True, env={**os.environ, "TZ": "UTC"}
    )
    if done.returncode not in allowed:
        raise RuntimeError(f"{command}: {done.stderr}")
    return done


def dump(path, device, *options):
    return run(TRENDCSV, "-x", path, "-d", device, "-u", "-pv", "-a", "-y", "%T", *options,
               allowed=(0, 1))  # fmt: skip


def printed(value):
    """Returns the text of a value in a dump."""
    if value is None:
        return ""
    digits = 6
    if value != 0 and math.isfinite(value):
        digits = max(6, int(math.log10(abs(value))) + 1)
    return "%.*G" % (digits, value)


def slots_by_column(device):
    slots = {}
    for param in device.parameters:
        held = [name for bit, name in enumerate(STATISTICS) if param.statistics >> bit & 1]
        for place, name in enumerate(held):
            slots[f"{param.path}:{name}"] = param.first_slot + place
    return slots


def value_of(row, slot):
    return row.values[slot] if slot < len(row.values) else None


class Databases(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.folder = folder.name

    def check(self, log):
        """Compares what the document's reader finds with what was loaded, and with a dump."""
        devices = {device.path: device for device in trend_database.read(log.path)}
        for (path, minutes), expected in log.rows.items():
            slots = slots_by_column(devices[path])
            found = devices[path].series[minutes]
            self.assertEqual([row.time for row in found], sorted(expected))
            for row in found:
                valid_ratio, values = expected[row.time]
                self.assertEqual(row.valid_ratio.hex(), valid_ratio.hex())
                bits = {
                    name: value_of(row, slot).hex()
                    for name, slot in slots.items()
                    if value_of(row, slot) is not None
                }
                self.assertEqual(bits, {name: value.hex() for name, value in values.items()})
        for path, device in devices.items():
            intervals = list(device.series)
            self.check_dump(log, device, intervals)
            for interval in intervals:
                self.check_dump(log, device, [interval], "-i", str(interval))

    def check_dump(self, log, device, intervals, *options):
        done = dump(log.path, device.path, *options)
        self.assertEqual(done.stderr, "")
        header, *rows = [line.split(",") for line in done.stdout.splitlines()]
        slots = slots_by_column(device)
        self.assertEqual(sorted(header[3:]), sorted(slots))
        expected = [
            text_of(row.time)
            + ["%.2f" % (100 * row.valid_ratio)]
            + [printed(value_of(row, slots[name])) for name in header[3:]]
            for _, row in trend_database.visible_rows(device, intervals)
        ]
        self.assertEqual(rows, expected)

    def mixed(self, seed):
        """Returns a log with sealed and loose rows of two series, some of them late."""
        log = Log(self.folder, seed)
        columns = log.column_names(4)
        log.load("site/pump", 10, range(START, START + 1700 * 600, 600), columns)
        log.load("site/pump", 60, range(START - 90000, START + 1000 * 600, 3600), columns)
        return log, columns

    def test_finds_loose_rows(self):
        log = Log(self.folder, 1)
        log.load("pump", 5, range(START, START + 12000, 300), log.column_names(5))
        self.assertEqual(log.blocks(), [])
        self.check(log)

    def test_finds_sealed_rows(self):
        for seed in range(3):
            log, _ = self.mixed(seed)
            self.assertGreater(len(log.blocks()), 1)
            self.check(log)
            os.remove(log.path)

    def test_finds_rows_at_irregular_times(self):
        log = Log(self.folder, 2)
        for device, most in (("fast", 3), ("slow", 40000), ("rare", 2**24)):
            times, time = [], 1000
            for _ in range(1500):
                time += log.random.randint(1, most)
                times.append(time)
            log.load(device, 1, times, log.column_names(1))
        self.assertGreater(len(log.blocks()), 3)
        self.check(log)

    def test_finds_rows_that_were_loaded_newest_first(self):
        log = Log(self.folder, 3)
        log.load("pump", 5, range(START + 1700 * 300, START, -300), log.column_names(3))
        self.assertGreater(len(log.blocks()), 1)
        self.check(log)

    def test_finds_late_rows(self):
        log, columns = self.mixed(4)
        blocks = log.blocks()
        late = [START - 600 * i for i in range(1, 20)]  # before the first block
        late += [last + 1 + i for _, last in blocks for i in range(3)]  # after each block
        late += [first + 600 * i + 1 for first, _ in blocks for i in range(0, 40, 7)]  # within
        late = [time for time in late if time not in log.rows["site/pump", 10]]
        log.random.shuffle(late)
        log.load("site/pump", 10, late, columns)
        self.assertNotEqual(log.query("SELECT * FROM loose JOIN block ON loose.id < block.id"
                                      " AND loose.id & 0xFFFFFFFFFF > first_time"), [])  # fmt: skip
        self.check(log)
        # So many that blocks are made again.
        times = [START + 600 * i + 2 + k for i in range(300) for k in range(4)]
        log.random.shuffle(times)
        log.load("site/pump", 10, times, columns)
        self.check(log)

    def test_finds_parameters_that_were_added_later(self):
        log, columns = self.mixed(5)
        later = log.column_names(2, start=4) + columns[:1]
        log.load("site/pump", 10, range(START + 1700 * 600, START + 3000 * 600, 600), later)
        log.load("site/pump", 10, range(START + 300, START + 100 * 600, 600), later)
        self.check(log)

    def test_finds_the_rows_of_wide_devices(self):
        log = Log(self.folder, 6)
        log.load("hall", 5, range(START, START + 400 * 300, 300), log.column_names(700))
        self.assertGreater(len(log.blocks()), 0)
        self.check(log)

    def test_finds_rows_after_a_purge(self):
        log, columns = self.mixed(7)
        for rows in (100, 777, 1699):
            log.purge("site/pump", 10, START + rows * 600)
            self.check(log)
        log.load("site/pump", 10, range(START, START + 900 * 600, 600), columns)
        self.check(log)
        log.purge("site/pump", 60, 2**39)
        self.check(log)

    def test_finds_what_was_copied(self):
        log, columns = self.mixed(9)
        source = log.path
        log.path += ".copy"
        run(TRENDTOOL, "copy", source, log.path)
        self.check(log)
        self.assertGreater(len(log.query("SELECT * FROM copied")), 0)
        with contextlib.closing(sqlite3.connect(log.path)) as db, db:
            db.execute("UPDATE copied SET change = change + 1")
        with self.assertRaises(trend_database.Damaged):
            trend_database.read(log.path)

    def make_version_1(self, rows):
        """Returns a log of version 1, made with the SQL of the document. The device has one
        parameter with minimum and maximum."""
        sql = re.search(r"```sql version-1.sql\n(.*?)```", pathlib.Path(DOCUMENT).read_text(), re.S)
        log = Log(self.folder, 8)
        db = sqlite3.connect(log.path)
        db.executescript(sql[1])
        db.execute("PRAGMA journal_mode = wal")
        with db:
            db.execute("INSERT INTO device (id, path) VALUES (7, 'pump')")
            db.execute("INSERT INTO parameter VALUES (3, 7, 'p0', 1 + 2, 0)")
            db.execute("INSERT INTO series VALUES (5, 7, 10)")
            for i in range(rows):
                time = START + 600 * i
                values = [log.random.gauss(0, 1), math.nan, 3.0][: i % 4]
                db.execute(
                    "INSERT INTO snapshot VALUES (?, 0.5, ?)",
                    ((5 << 40) + time, struct.pack(f">{len(values)}d", *values)),
                )
                held = {"p0:.ValueIntMin": values[0]} if values else {}
                log.rows.setdefault(("pump", 10), {})[time] = (0.5, held)
        db.close()
        return log

    def test_finds_rows_of_version_1(self):
        log = self.make_version_1(100)
        self.check(log)
        self.assertEqual(log.query("PRAGMA user_version"), [(1,)])

    def test_finds_rows_of_a_database_that_became_version_2(self):
        log = self.make_version_1(1500)
        columns = ["p0:.ValueIntMin", "p0:.ValueIntMax"]
        log.load("pump", 10, [START + 1500 * 600, START + 7], columns)
        self.assertEqual(log.query("PRAGMA user_version"), [(2,)])
        self.check(log)
        log.load("pump", 10, range(START + 1501 * 600, START + 3000 * 600, 600), columns)
        self.assertGreater(len(log.blocks()), 0)
        self.check(log)


def damage_of(table, column, change, order="id LIMIT 1"):
    where = f"rowid = (SELECT rowid FROM {table} ORDER BY {order})"
    return f"UPDATE {table} SET {column} = {change} WHERE {where}"


def flip(blob, place):
    """Returns the bytes with one bit changed; a negative place counts from the end."""
    changed = bytearray(blob)
    changed[place] ^= 1
    return bytes(changed)


class Damage(unittest.TestCase):
    """Every change of a database by hand is noticed."""

    @classmethod
    def setUpClass(cls):
        cls.folder = tempfile.TemporaryDirectory()
        cls.log = Log(cls.folder.name, 9)
        columns = cls.log.column_names(3)
        for device, rows in (("a", 1700), ("b", 700)):
            cls.log.load(device, 10, range(START, START + rows * 600, 600), columns)
        cls.log.load("a", 10, [START + 61, START - 7000], columns)
        cls.whole = pathlib.Path(cls.log.path).read_bytes()
        cls.dumps = {device: dump(cls.log.path, device).stdout for device in ("a", "b")}
        assert len(trend_database.read(cls.log.path)) == 2

    @classmethod
    def tearDownClass(cls):
        cls.folder.cleanup()

    def setUp(self):
        """Puts the whole database back."""
        for suffix in ("-wal", "-shm"):
            pathlib.Path(self.log.path + suffix).unlink(missing_ok=True)
        pathlib.Path(self.log.path).write_bytes(self.whole)

    def refuse(self, *statements):
        """Runs the statements. The reader must refuse the database then, and a dump fails or is the
        same as before.
        """
        with self.subTest(statements[0]):
            self.setUp()
            with contextlib.closing(sqlite3.connect(self.log.path)) as db, db:
                db.create_function("flip", 2, flip)
                db.execute("PRAGMA ignore_check_constraints = on")
                changed = [db.execute(statement).rowcount for statement in statements]
            self.assertNotIn(0, changed, "the statement changes nothing")
            with self.assertRaises(trend_database.Damaged):
                trend_database.read(self.log.path)
            for device, before in self.dumps.items():
                done = dump(self.log.path, device)
                if done.stdout != before:
                    self.assertNotEqual(done.stderr, "")

    def test_in_a_pragma(self):
        self.refuse("PRAGMA user_version = 3")
        self.refuse("PRAGMA user_version = 1")
        self.refuse("PRAGMA application_id = 1")

    def test_in_a_number(self):
        for table, columns in {
            "database": "next_block, catalogue, checksum",
            "device": "id",
            "parameter": "id, device_id, statistics, first_slot",
            "series": "id, device_id, minutes",
            "series_state": "series_id, loose_rows, unchecked_until, first_block, last_block,"
            " blocks, sealed_rows, changes, checksum",
            "loose": "id, checksum",
            "block": "id, number, first_time, previous, rows, bytes, segment_size, change,"
            " checksum",
            "segment": "id",
        }.items():
            for column in columns.split(", "):
                for change in ("+ 1", "+ 256", "- 1000"):
                    # The last row, so that the next ids are free.
                    order = "rowid DESC LIMIT 1"
                    self.refuse(damage_of(table, column, f"{column} {change}", order))

    def test_in_a_text(self):
        self.refuse("UPDATE database SET uuid = substr(uuid, 2)")
        for column in ("path", "description"):
            self.refuse(damage_of("device", column, f"{column} || 'x'"))
        self.refuse(damage_of("parameter", "path", "'p'"))

    def test_in_a_loose_row(self):
        self.refuse(damage_of("loose", "valid_ratio", "valid_ratio + 0.5"))
        self.refuse(damage_of("loose", "checksum", "NULL"))
        self.refuse(damage_of("loose", "samples", "x''"))
        for place in (0, 7, -1):
            self.refuse(damage_of("loose", "samples", f"flip(samples, {place})"))
        self.refuse("DELETE FROM loose WHERE id = (SELECT max(id) FROM loose)")
        self.refuse("DELETE FROM loose WHERE id = (SELECT min(id) FROM loose)")
        self.refuse("DELETE FROM loose")
        self.refuse(
            "INSERT INTO loose SELECT id + 1, valid_ratio, samples, checksum FROM loose LIMIT 1"
        )

    def test_in_a_block(self):
        ((length,),) = self.log.query("SELECT length(content) FROM block LIMIT 1")
        for place in [*range(12), *range(12, length, 59)]:
            self.refuse(damage_of("block", "content", f"flip(content, {place})"))
        self.refuse(damage_of("block", "content", "x''"))
        for which in ("min(id)", "max(id)"):
            self.refuse(f"DELETE FROM block WHERE id = (SELECT {which} FROM block)")
        self.refuse("DELETE FROM block WHERE id = (SELECT id FROM block LIMIT 1 OFFSET 1)")
        self.refuse("DELETE FROM block")
        swap_ids(self, "block")

    def test_in_a_segment(self):
        for count, (row_id, length) in enumerate(
            self.log.query("SELECT id, length(data) FROM segment")
        ):
            for place in {0, 3, 4, 5, count, length // 2, length - 1}:
                self.refuse(f"UPDATE segment SET data = flip(data, {place}) WHERE id = {row_id}")
            self.refuse(f"UPDATE segment SET data = CAST(data || x'00' AS BLOB) WHERE id = {row_id}")
            self.refuse(f"DELETE FROM segment WHERE id = {row_id}")
        self.refuse("INSERT INTO segment SELECT max(id) + 1, x'00' FROM segment")
        swap_ids(self, "segment")

    def test_in_whole_tables(self):
        for table in ("device", "parameter", "series", "series_state", "segment", "database"):
            self.refuse(f"DELETE FROM {table}")
            self.refuse(f"DROP TABLE {table}")


def swap_ids(test, table):
    """Swaps the ids of each two neighbours."""
    test.setUp()
    ids = [row_id for (row_id,) in test.log.query(f"SELECT id FROM {table} ORDER BY id")]
    for one, other in zip(ids, ids[1:]):
        test.refuse(
            f"UPDATE {table} SET id = 1 WHERE id = {one}",
            f"UPDATE {table} SET id = {one} WHERE id = {other}",
            f"UPDATE {table} SET id = {other} WHERE id = 1",
        )


class Checksum(unittest.TestCase):
    def test_of_nine_digits(self):
        self.assertEqual(trend_database.crc32c(b"123456789"), 0xE3069283)


if __name__ == "__main__":
    unittest.main(argv=[sys.argv[0], *sys.argv[5:]])
