"""The tables that scripts/bench-ratios.py makes of benchmark reports."""

import importlib.machinery
import pathlib
import types
import unittest

SCRIPT = pathlib.Path(__file__).resolve().parents[2] / "scripts" / "bench-ratios.py"
ratios = types.ModuleType("ratios")
importlib.machinery.SourceFileLoader("ratios", str(SCRIPT)).exec_module(ratios)


def run(run_name, time, **more):
    times = {"cpu_time": time, "real_time": 10 * time, "time_unit": "ns"}
    return {"name": run_name, "run_name": run_name} | times | more


class BenchRatiosTest(unittest.TestCase):
    def groups(self, *runs):
        return ratios.read({"benchmarks": list(runs)})

    def test_a_name_is_group_variant_and_size(self):
        for name, parts in [("setter/pimbsr/8", ("setter", "pimbsr", "8")),
                            ("find/std/a/8", ("find", "std", "a/8")),
                            ("timer/libuv", ("timer", "libuv", "")), ("alone", ("alone", "pimbsr", "")),
                            ("path/pimbsr/32/iterations:5/real_time", ("path", "pimbsr", "32"))]:
            self.assertEqual(parts, ratios.split_name(name))

    def test_units_become_nanoseconds(self):
        self.assertEqual({"g": {"1": {"a": 2000.0, "b": 3e6}}},
                         self.groups(run("g/a/1", 2, time_unit="us"), run("g/b/1", 3, time_unit="ms")))

    def test_real_time_is_used_where_the_benchmark_asks_for_it(self):
        self.assertEqual({"g": {"": {"a": 20.0}}}, self.groups(run("g/a/real_time", 2)))

    def test_of_repeated_runs_the_median_counts(self):
        repeated = [run("g/a/1", time) for time in (1, 5, 6)]
        median = run("g/a/1", 5, name="g/a/1_median", run_type="aggregate", aggregate_name="median")
        self.assertEqual({"g": {"1": {"a": 5.0}}}, self.groups(*repeated, median))
        self.assertEqual({"g": {"1": {"a": 1.0}}}, self.groups(*repeated))

    def test_the_table_sets_ours_first_and_gives_ratios_to_it(self):
        sizes = self.groups(run("g/std/1", 30), run("g/pimbsr/1", 10),
                            run("g/std/2", 5), run("g/pimbsr/2", 10), run("g/other/2", 20))["g"]
        self.assertEqual(["g   pimbsr              std            other",
                          "1  10.0 ns  30.0 ns (3.00x)                -",
                          "2  10.0 ns   5.0 ns (0.50x)  20.0 ns (2.00x)"], ratios.table("g", sizes))

    def test_a_group_without_ours_gives_ratios_to_its_first_variant(self):
        sizes = self.groups(run("ranges/random/1", 10), run("ranges/alike/1", 25))["ranges"]
        self.assertEqual(["ranges   random            alike", "     1  10.0 ns  25.0 ns (2.50x)"],
                         ratios.table("ranges", sizes))

    def test_a_ratio_above_the_bound_is_named(self):
        groups = self.groups(run("ranges/random/9", 10), run("ranges/alike/9", 31), run("rps/random/9", 10),
                             run("rps/alike/9", 29))
        self.assertEqual(["ranges/alike/9: 3.10 times its base, at most 3 is the aim"],
                         ratios.excess(groups, 3))

    def test_a_counter_is_shown_by_its_name(self):
        report = {"benchmarks": [run("m/a/1", 1, bytes=550.44), run("m/a/1", 1, bytes=1560),
                                 run("m/a/1", 1, bytes=1550, run_type="aggregate", aggregate_name="median"),
                                 run("m/a/1", 0, bytes=9, run_type="aggregate", aggregate_name="stddev")]}
        self.assertEqual(["m/a/1  1,550.0 bytes"], ratios.counters(report))
        self.assertEqual(["m/a/1  550.4 bytes"], ratios.counters({"benchmarks": report["benchmarks"][:1]}))

    def test_a_benchmark_that_failed_is_named(self):
        with self.assertRaisesRegex(SystemExit, "g/a/1: no timer"):
            self.groups(run("g/a/1", 0, error_occurred=True, error_message="no timer"))


if __name__ == "__main__":
    unittest.main()
