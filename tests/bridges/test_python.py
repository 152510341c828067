"""The Python package on a copy of the sample tables (examples/data: CLIEN, FACTU).

Needs TQDB_SAMPLE_DIR (the tables made by tqdb create + import), TQDB_LIBRARY (the shared
libtqdb) and the package on PYTHONPATH; CTest sets all three.
"""

import datetime
import os
import shutil
import tempfile
import unittest

import tqdb


class PythonPackageTest(unittest.TestCase):
    def setUp(self):
        work = tempfile.mkdtemp()
        self.addCleanup(shutil.rmtree, work)
        self.directory = shutil.copytree(os.environ["TQDB_SAMPLE_DIR"], os.path.join(work, "d"))
        self.table = tqdb.open(os.path.join(self.directory, "CLIEN01"), self.directory)
        self.addCleanup(self.table.close)

    def test_fields_come_typed(self):
        self.assertEqual(len(self.table.fields), 8)
        self.assertEqual(self.table.fields[1], tqdb.Field("NOMBRE", 10, 40))
        self.assertEqual(self.table.key_count, 3)
        first = next(iter(self.table))
        self.assertEqual(
            dict(first),
            {"CLIENTE": "000001", "NOMBRE": "Cañete Romero, Joaquín", "NIF": "36118632F",
             "POBLACION": "Málaga", "PROVINCIA": "Málaga", "ALTA": datetime.date(2020, 10, 11),
             "SALDO": 15823.47, "LIMITE": 7000})
        self.assertEqual(first.bookmark, 1)

    def test_iterate_and_filter(self):
        rich = list(self.table.rows(key=2, filter="SALDO > 10000"))
        self.assertEqual(sorted(row["CLIENTE"] for row in rich),
                         ["000001", "000002", "000008", "000009", "000011"])
        self.assertAlmostEqual(sum(row["SALDO"] for row in rich), 63557.93, places=2)
        self.assertAlmostEqual(self.table.sum("SALDO", "SALDO > 10000"), 63557.93, places=2)
        rows = self.table.rows(filter="SALDO > 10000", sort="SALDO DESC")
        by_balance = [row["SALDO"] for row in rows]
        self.assertEqual(by_balance, sorted(by_balance, reverse=True))
        names = [row["NOMBRE"].upper()[:30] for row in self.table.rows(key=2)]
        self.assertEqual((len(names), names), (200, sorted(names)))

    def test_seek(self):
        cases = [  # value, key, option, client found (None: no record)
            ("000041", 1, "first", "000041"),
            ("000041", 1, "after", "000042"),
            ("000041", 1, "before", "000040"),
            ("00004A", 1, "first", None),
            ("00004A", 1, "after-eq", "000050"),
            ("GARC", 2, "after-eq", "000006"),
            (("Jaén", "Peña Hernández, Rocío"), 3, "first", "000002"),
        ]
        for value, key, option, client in cases:
            with self.subTest(value=value, option=option):
                row = self.table.seek(value, key=key, option=option)
                self.assertEqual(row and row["CLIENTE"], client)
        # Date segments of the invoices' keys 2 (CLIENTE FECHA) and 3 (FECHA NUMERO).
        path = os.path.join(self.directory, "FACTU01")
        with tqdb.open(path, self.directory) as invoices:
            found = invoices.seek(("000001", datetime.date(2023, 2, 11)), key=2)
            self.assertEqual(found["NUMERO"], "2023-0116")
            found = invoices.seek(datetime.date(2024, 1, 6), key=3, option="after-eq")
            self.assertEqual((found["NUMERO"], found["IVA"]), ("2024-0015", 21))

    def test_add_update_delete(self):
        leap_day = datetime.date(2064, 2, 29)
        with self.table.bulk_load():
            added = self.table.add({"CLIENTE": "000999", "NOMBRE": "Ibáñez Núñez, Íñigo",
                                    "SALDO": 12.5, "ALTA": leap_day, "LIMITE": 5000})
        self.assertEqual((added.bookmark, added["NOMBRE"], added["ALTA"]),
                         (201, "Ibáñez Núñez, Íñigo", leap_day))
        added.update({"SALDO": 0.25, "ALTA": None})
        found = self.table.seek("000999", key=1)
        self.assertEqual((found["SALDO"], found["ALTA"], found["LIMITE"]), (0.25, None, 5000))
        found.delete()
        self.assertIsNone(self.table.seek("000999"))
        # Deleting while walking: the walk goes on with the next record.
        for row in self.table.rows(key=2):
            if row["PROVINCIA"] == "Madrid":
                row.delete()
        provinces = [row["PROVINCIA"] for row in self.table]
        self.assertEqual((len(provinces), provinces.count("Madrid")), (177, 0))

    def test_errors(self):
        cases = [  # what fails, number, start of the description
            (lambda: self.table.add({"SALDOS": 1}), 50234, "Campo SALDOS no existe"),
            (lambda: self.table.seek("000001", key=9), 9, "El subíndice"),
            (lambda: tqdb.open(os.path.join(self.directory, "NOHAY01"), self.directory), 50999,
             "La tabla NOHAY"),
        ]
        for action, number, description in cases:
            with self.subTest(number=number):
                with self.assertRaises(tqdb.Error) as caught:
                    action()
                self.assertEqual(caught.exception.number, number)
                self.assertTrue(caught.exception.description.startswith(description),
                                caught.exception.description)
        self.table.close()
        with self.assertRaises(tqdb.Error):
            self.table.seek("000001")


if __name__ == "__main__":
    unittest.main()
