# SPDX-License-Identifier: Apache-2.0
"""What vpdctl prints for programs is what docs/schema/ says, and nothing else.

Each document must fit the schema of its command; no property of it may be undocumented, of any other type, or, when the
schema asks for it, missing: a document that is changed so must be refused.

usage: json_schemas.py Alone|Kept|Served --vpdctl FILE ... (see tests/cli/meson.build)
Kept needs a mount namespace of vpdctl's own, and is skipped where there is none; Served needs a /tmp of its own.
"""
import argparse
import copy
import json
import os
import pathlib
import shlex
import subprocess
import sys
import tempfile
import time
import unittest

try:
    import jsonschema
except ImportError:
    sys.exit('json_schemas.py: the Python module jsonschema is missing: install python3-jsonschema (./dev setup does)')

SHARED = 'common'
SKIPPED = 77
SECONDS = 60  # no command takes longer, even in an emulator under a sanitizer
INCOMPLETE = 1  # exit code: something could not be read; the document is there

options = None


def command_of(program, *arguments):
    return [*shlex.split(os.environ.get('MESON_EXE_WRAPPER', '')), program, *map(str, arguments)]


def output_of(program, *arguments, codes=(0, INCOMPLETE)):
    result = subprocess.run(command_of(program, *arguments), capture_output=True, timeout=SECONDS, check=False)
    if result.returncode not in codes:
        raise AssertionError(f'{arguments}: exit code {result.returncode}: {result.stderr.decode(errors="replace")}')
    return result.stdout.decode()


def vpdctl(*arguments):
    return output_of(options.vpdctl, *arguments)


def commands():
    """All commands that print JSON, in the order of the help."""
    section = vpdctl('--help').split('\nCommands:\n')[1].split('\n\n')[0]
    names = [line.split()[0] for line in section.splitlines()]
    return [name for name in names if '--json' in vpdctl(name, '--help')]


def schema_path(name):
    return options.schemas / f'{name}.schema.json'


def schema_of(name):
    return json.loads(schema_path(name).read_text())


def whole_schema_of(command):
    """With the shared definitions put in: each version of the module finds other files in its own way."""
    definitions = {**schema_of(SHARED)['$defs'], **schema_of(command).get('$defs', {})}
    text = json.dumps({**schema_of(command), '$defs': definitions})
    return json.loads(text.replace(f'"{SHARED}.schema.json#/', '"#/'))


def validator_of(command):
    return jsonschema.Draft202012Validator(whole_schema_of(command))


def subschemas(schema):
    """Every object of a schema with properties."""
    if isinstance(schema, list):
        for part in schema:
            yield from subschemas(part)
    if isinstance(schema, dict):
        if isinstance(schema.get('properties'), dict):
            yield schema
        for part in schema.values():
            yield from subschemas(part)


def shape_of(value):
    if isinstance(value, dict):
        return tuple((name, shape_of(part)) for name, part in sorted(value.items()))
    if isinstance(value, list):
        return tuple(sorted({repr(shape_of(part)) for part in value}))
    return type(value).__name__


def thinned(value):
    """The document with one element of each shape in its lists, so that trying every change takes seconds."""
    if isinstance(value, dict):
        return {name: thinned(part) for name, part in value.items()}
    if not isinstance(value, list) or not all(isinstance(part, dict) for part in value):
        return value
    return list({repr(shape_of(part)): thinned(part) for part in value}.values())


def places_in(value, path=()):
    """The paths of all values in a document, its own included."""
    yield path
    parts = value.items() if isinstance(value, dict) else enumerate(value) if isinstance(value, list) else ()
    for key, part in parts:
        yield from places_in(part, (*path, key))


def value_at(document, path):
    for key in path:
        document = document[key]
    return document


def changed_documents(document):
    """Pairs: what is wrong, and a copy of the document where it is."""
    for path in places_in(document):
        value = value_at(document, path)
        if isinstance(value, dict):
            wrong = copy.deepcopy(document)
            value_at(wrong, path)['Undocumented'] = 'x'
            yield f'undocumented property in {path}', wrong
        if path:
            wrong = copy.deepcopy(document)
            value_at(wrong, path[:-1])[path[-1]] = {'Wrong': 'type'}
            yield f'wrong type of {path}', wrong


class Documents(unittest.TestCase):
    def check(self, command, document):
        errors = [f'{list(error.absolute_path)}: {error.message}' for error in validator_of(command).iter_errors(document)]
        self.assertEqual(errors, [], f'{command}: the schema does not have what vpdctl prints')

    def check_refusals(self, command, document):
        validator = validator_of(command)
        document = thinned(document)
        self.assertTrue(validator.is_valid(document))
        for what, wrong in changed_documents(document):
            self.assertFalse(validator.is_valid(wrong), f'{command}: {what} is not refused')
        for name in schema_of(command).get('required', []):
            wrong = {key: value for key, value in document.items() if key != name}
            self.assertFalse(validator.is_valid(wrong), f'{command}: a missing {name} is not refused')

    def validate(self, command, *arguments):
        document = json.loads(vpdctl(command, '--json', *arguments))
        with self.subTest(command=command, arguments=arguments):
            self.check(command, document)
            self.check_refusals(command, document)
        return document


class Alone(Documents):
    """Commands that read a description or a file, and the schemas themselves."""

    def servers(self):
        return [path for path in sorted(options.servers.glob('*.json')) if path.name != 'schema.json']

    def samples(self, kind):
        folder = pathlib.Path(os.environ.get('VPDD_SAMPLES', options.samples))
        return sorted((folder / kind).rglob('*.bin'))

    def validate_images(self, command):
        with tempfile.TemporaryDirectory() as folder:
            output_of(options.images, folder, codes=(0,))
            built = sorted((pathlib.Path(folder) / command).iterdir())
            self.assertNotEqual(built, [])
            for path in built:
                self.validate(command, path)
        for path in self.samples(command):
            with self.subTest(sample=path.name):
                self.check(command, json.loads(vpdctl(command, '--json', path)))

    def test_every_command_has_a_schema_and_every_schema_a_command(self):
        names = [path.name.removesuffix('.schema.json') for path in options.schemas.iterdir()]
        self.assertEqual(sorted(names), sorted([*commands(), SHARED]))

    def test_schemas_are_schemas_with_titles_and_descriptions(self):
        for name in [*commands(), SHARED]:
            schema = schema_of(name)
            jsonschema.Draft202012Validator.check_schema(schema)
            self.assertTrue(schema['title'] and schema['description'], name)
            for part in subschemas({key: value for key, value in schema.items() if key != 'if'}):
                for item, meaning in part['properties'].items():
                    self.assertTrue(meaning.get('description'), f'{name}: {item} has no description')

    def test_inventory(self):
        for server in self.servers():
            document = self.validate('inventory', '--server', server)
            self.assertTrue(document['Memory'])

    def test_machine(self):
        for server in self.servers():
            self.validate('machine', '--server', server)
            self.validate('machine', '--server', server, '--oem')

    def test_firmware(self):
        for server in self.servers():
            self.validate('firmware', '--server', server)

    def test_property(self):
        for server in self.servers():
            document = self.validate('property', '/v2', '--tree', '--server', server)
            self.validate('property', document['Properties'][0]['Path'], '--server', server)

    def test_slots(self):
        for server in self.servers():
            self.validate('slots', '--server', server)
        self.validate('slots', '--platform', '0x00500085')

    def test_spd(self):
        self.validate_images('spd')

    def test_fru(self):
        self.validate_images('fru')
        for server in self.servers():
            for fru_id in (0, 1, 40):
                if fru_id in [fru['fru_id'] for fru in json.loads(server.read_text())['frus']]:
                    self.validate('fru', '--fru-id', fru_id, '--server', server)


class Kept(Documents):
    """Commands that keep something in a state directory."""

    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.state = ['--state', folder.name]
        probe = subprocess.run(command_of(options.vpdctl, 'log', *self.state), capture_output=True, timeout=SECONDS,
                               check=False)
        if b'no private /flash and /tmp' in probe.stderr:
            self.skipTest('this machine allows no private root')

    def test_what_happens_to_a_server(self):
        server = ['--server', options.servers / 'ddr5-2s.json', *self.state]
        self.validate('status', *server)
        self.validate('simulate', 'swap', 'CPU 2', *server)
        self.validate('simulate', 'pull', 'Fan 3', *server)
        self.validate('status', *server)
        self.validate('simulate', 'insert', 'Fan 3', *server)
        changed = self.validate('status', '--changed', *server)
        self.assertEqual([item['Name'] for item in changed['Components']], ['Fan 3'])
        self.assertTrue(self.validate('log', *self.state)['Entries'])
        events = {change['Event'] for change in self.validate('history', *self.state)['Changes']}
        self.assertEqual(events, {'Installed', 'Removed', 'Replaced'})
        self.validate('inventory', *server)


class Served(Documents):
    """Commands that ask vpdd."""

    def setUp(self):
        arguments = ('--server', options.servers / 'ddr4-2s.json', '--state', '/tmp/state', '--poll', '0.1')
        daemon = subprocess.Popen(command_of(options.vpdd, *arguments))
        self.addCleanup(daemon.wait)
        self.addCleanup(daemon.terminate)
        end = time.monotonic() + SECONDS
        while subprocess.run(command_of(options.vpdctl, 'status'), capture_output=True, timeout=SECONDS,
                             check=False).returncode not in (0, INCOMPLETE):
            self.assertIsNone(daemon.poll(), 'vpdd has ended')
            self.assertLess(time.monotonic(), end, 'vpdd does not answer')
            time.sleep(0.1)

    def test_what_vpdd_tells(self):
        self.assertEqual(self.validate('inventory')['Server'], 'this machine')
        self.validate('machine')
        self.validate('machine', '--oem')
        self.assertTrue(self.validate('status')['Components'])
        self.assertTrue(self.validate('log')['Entries'])
        lines = vpdctl('watch', '--json', '--all', '--count', '5').splitlines()
        self.assertEqual(len(lines), 5)
        for line in lines:
            self.check('watch', json.loads(line))
            self.check_refusals('watch', json.loads(line))


def main():
    global options
    parser = argparse.ArgumentParser()
    parser.add_argument('case', choices=['Alone', 'Kept', 'Served'])
    for name in ('vpdctl', 'vpdd', 'images'):
        parser.add_argument(f'--{name}')
    for name in ('schemas', 'servers', 'samples'):
        parser.add_argument(f'--{name}', type=pathlib.Path)
    options = parser.parse_args()
    suite = unittest.defaultTestLoader.loadTestsFromTestCase(globals()[options.case])
    result = unittest.TextTestRunner(verbosity=2).run(suite)
    if not result.wasSuccessful():
        return 1
    return SKIPPED if result.skipped else 0


sys.exit(main())
