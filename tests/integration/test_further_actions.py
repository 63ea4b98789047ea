"""vtagent running the smaller actions in rules: a counter and a status variable route every
third line, and a program receives message text as one literal argument."""
import os
import stat
import unittest

from test_service_host import AgentTestCase, ROOT, file_lines, services

RULES = ROOT + "\\RuleSets"


def rule(n, actions, conditions=()):
    """Rule n of rule set 1 with `actions` [(type, values)] and AND-ed filter `conditions`."""
    key = RULES + "\\RS1\\R%d" % n
    head = {"nActionCount": len(actions)}
    sections = []
    for a, (kind, values) in enumerate(actions, 1):
        head.update({"nActionType%d" % a: kind, "szActionName%d" % a: "a%d" % a})
        sections.append((key + "\\A%d" % a, values))
    if conditions:
        sections.append((key + "\\Filters", {"nFilterCount": len(conditions)}))
        sections += [(key + "\\Filters\\F%d" % f, dict(nOperationType=4, **c))
                     for f, c in enumerate(conditions, 1)]
    return [(key, head)] + sections


class FurtherActions(AgentTestCase):
    def run_lines(self, lines, rules, wait_for):
        source = os.path.join(self.dir, "app.log")
        with open(source, "w") as f:
            f.write("".join(l + "\n" for l in lines))
        monitor = {"nConfigVersion": 1, "szRuleSetName": "Default", "szPathAndFileName": source,
                   "nSleepTime": 100, "nPreventOverrunDelay": 0}
        self.import_config([(RULES, {"nRuleSetsVersion": 1, "nRuleSetCount": 1,
                                     "szRSName1": "Default"}),
                            (RULES + "\\RS1", {"nRuleCount": len(rules)})] +
                           [s for r in rules for s in r] + services((5, "lines", monitor)),
                           nWorkerThreads=1)
        agent = self.spawn("-r")
        self.wait_for(wait_for, "the actions' output", 60, agent)
        self.stop(agent)

    def test_counter_and_status_filter_route_every_third_line(self):
        out = os.path.join(self.dir, "out")
        written = lambda: file_lines(os.path.join(out, "third.log"))
        count = (1023, {"szStatusVar": "seen"})
        write = (1003, {"szFilePath": out, "szFileBaseName": "third", "nUniqueFileName": 0,
                        "nFileFormat": 3, "szLineFormat": "%msg%%$CRLF%"})
        reset = (1013, {"szPropertyName": "seen", "szPropertyValue": "0"})
        third = {"PropertyType": 7, "PropertyName": "seen", "PropertyValue": "3",
                 "CompareOperation": 5}
        self.run_lines(["line %d" % n for n in range(1, 11)],
                       [rule(1, [count]), rule(2, [write, reset], [third])],
                       lambda: len(written()) >= 3)
        self.assertEqual(written(), [b"line 3", b"line 6", b"line 9"])

    def test_program_gets_message_text_as_one_argument(self):
        record = os.path.join(self.dir, "args.txt")
        script = os.path.join(self.dir, "record.sh")
        with open(script, "w") as f:
            f.write('#!/bin/sh\nfor a in "$@"; do printf "[%%s]\\n" "$a"; done >> %s\n' % record)
        os.chmod(script, stat.S_IRWXU)
        hostile = "; touch pwned $(touch pwned) `touch pwned` \"q\" 'x' | cat"
        spawn = (1009, {"szCommand": script, "szParameters": "\"got %msg%\"", "nProcMode": 1})
        self.run_lines([hostile], [rule(1, [spawn])], lambda: os.path.exists(record))
        with open(record) as f:
            self.assertEqual(f.read(), "[got %s]\n" % hostile)
        self.assertFalse(os.path.exists(os.path.join(self.dir, "pwned")))


if __name__ == "__main__":
    unittest.main()
