#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""The two stored descriptions of the binary interface agree: names, function types, and every record without a pointer.

usage: check.py DESCRIPTION DESCRIPTION
"""

import sys
import xml.etree.ElementTree as ElementTree


class Description:
    def __init__(self, path):
        self.root = ElementTree.parse(path).getroot()
        self.types = {element.get('id'): element for element in self.root.iter() if element.get('id')}
        self.symbols = {
            (group.tag, symbol.get('name'))
            for group in self.root
            if group.tag in ('elf-function-symbols', 'elf-variable-symbols')
            for symbol in group
        }

    def spelled(self, type_id):
        """A type as C would spell it, as far as it matters here."""
        element = self.types.get(type_id)
        if element is None:
            return type_id
        if element.tag == 'pointer-type-def':
            return self.spelled(element.get('type-id')) + '*'
        if element.tag == 'qualified-type-def':
            words = [word for word in ('const', 'volatile') if element.get(word) == 'yes']
            return ' '.join([*words, self.spelled(element.get('type-id'))])
        if element.tag == 'array-type-def':
            sizes = ''.join(f'[{part.get("length")}]' for part in element.iter('subrange'))
            return self.spelled(element.get('type-id')) + sizes
        if element.tag == 'function-type':
            return self.signature(element)
        return element.get('name')

    def signature(self, function):
        parameters = [
            '...' if parameter.get('is-variadic') else self.spelled(parameter.get('type-id'))
            for parameter in function.findall('parameter')
        ]
        result = function.find('return')
        return f'{self.spelled(result.get("type-id"))} ({", ".join(parameters)})'

    def functions(self):
        return {
            function.get('name'): self.signature(function)
            for function in self.root.iter('function-decl')
            if function.get('elf-symbol-id')
        }

    def data(self):
        return {
            variable.get('name'): self.spelled(variable.get('type-id'))
            for variable in self.root.iter('var-decl')
            if variable.get('elf-symbol-id')
        }

    def has_pointer(self, type_id, seen=()):
        element = self.types.get(type_id)
        if element is None or type_id in seen:
            return False
        if element.tag in ('pointer-type-def', 'reference-type-def'):
            return True
        inner = [element.get('type-id')] if element.get('type-id') else []
        inner += [member.get('type-id') for member in element.findall('data-member/var-decl')]
        return any(self.has_pointer(part, (*seen, type_id)) for part in inner)

    def records(self):
        """Size and member offsets in bits, of the named records that hold no pointer."""
        found = {}
        for element in self.root.iter('class-decl'):
            name = element.get('name')
            if not name.isidentifier() or not element.get('size-in-bits') or self.has_pointer(element.get('id')):
                continue
            members = {
                member.find('var-decl').get('name'): member.get('layout-offset-in-bits')
                for member in element.findall('data-member')
                if member.get('layout-offset-in-bits') is not None
            }
            found[name] = (element.get('size-in-bits'), members)
        return found


def differences(what, one, other):
    for name in sorted(one.keys() | other.keys()):
        if one.get(name) != other.get(name):
            yield f'{what} {name}: {one.get(name)} and {other.get(name)}'


def main():
    one, other = (Description(path) for path in sys.argv[1:])
    faults = [f'{kind[:-1]} {name}: only in one of them' for kind, name in sorted(one.symbols ^ other.symbols)]
    faults += differences('function', one.functions(), other.functions())
    faults += differences('datum', one.data(), other.data())
    faults += differences('record', one.records(), other.records())
    if not one.functions() or not one.data() or not one.records():
        faults.append('found nothing to compare')
    print('\n'.join(faults) or f'{len(one.symbols)} names and {len(one.records())} records agree')
    return 1 if faults else 0


sys.exit(main())
