"""A camera's store filled at once: what a year of cars would leave there."""
import sqlite3
import struct

UNDELIVERED = 0
RECORD = bytes(552)


def fill(data_directory, first_id, last_id):
    """Undelivered results with these plate ids, for a camera that has begun and ended there."""
    with sqlite3.connect(data_directory / "camera.db") as database:
        database.executemany(
            "INSERT INTO results(id, record, picture_bytes, stored_s, status) VALUES(?, ?, 0, ?, ?)",
            ((plate_id, RECORD[:80] + struct.pack("<I", plate_id) + RECORD[84:], plate_id,
              UNDELIVERED) for plate_id in range(first_id, last_id + 1)))
    database.close()
