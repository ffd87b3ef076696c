#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""The manual pages that follow from the header and from what the commands say of themselves.

usage: pages.py write FOLDER HEADER PROGRAM...     renews the pages in FOLDER
       pages.py check FOLDER HEADER PROGRAM...     fails when one of them is not what it would be made to

A page's texts have one home: the header's descriptions, and the commands' --help. The pages stand in the repository, since
a cross build cannot run the commands.
"""

import os
import re
import shlex
import subprocess
import sys

SOURCE = 'orva_vpdd'
MANUAL = 'Vital product data'
# Programs of section 8; the others are of section 1.
DAEMONS = {'vpdd'}


def escaped(text):
    """A text as roff has it: no backslash, hyphen or leading dot is left to be taken for something else."""
    text = text.replace('\\', '\\e').replace('-', '\\-')
    return '\n'.join('\\&' + line if line.startswith(('.', "'")) else line for line in text.split('\n'))


def page(name, section, summary, body):
    return '\n'.join([
        '.\\" SPDX-License-Identifier: Apache-2.0',
        '.\\" Made by docs/man/pages.py: change the texts where they come from, then run ./dev man.',
        f'.TH {name.upper()} {section} "" "{SOURCE}" "{MANUAL}"',
        '.SH NAME', f'{escaped(name)} \\- {escaped(summary)}', *body, ''])


def literal(lines):
    return ['.nf', *[escaped(line) for line in lines], '.fi']


# ---- commands

LISTS = ('Options', 'Positionals', 'Commands')
HEADING = re.compile(r'(Options|Positionals|Commands|Examples|Exit codes|Environment|Signals):$')


def help_of(command):
    wrapper = shlex.split(os.environ.get('MESON_EXE_WRAPPER', ''))
    environment = {name: value for name, value in os.environ.items() if name not in ('COLUMNS', 'VPDD_STATE_DIRECTORY')}
    return subprocess.run([*wrapper, *command, '--help'], check=True, capture_output=True, text=True, env=environment).stdout


def split_help(text):
    """The summary, the usage, and the sections of a help text: (heading or None, lines) in order."""
    summary, usage, sections = None, None, []
    heading, lines = None, []
    for line in text.strip('\n').split('\n'):
        if summary is None:
            summary = line.rstrip('.')
        elif line.startswith('Usage: '):
            usage = line.removeprefix('Usage: ')
        elif match := HEADING.fullmatch(line):
            sections.append((heading, lines))
            heading, lines = match.group(1), []
        elif not line and heading in LISTS:
            # A list ends at its first blank line; what follows describes the command.
            sections.append((heading, lines))
            heading, lines = None, []
        else:
            lines.append(line)
    sections.append((heading, lines))
    return summary, usage, [(heading, lines) for heading, lines in sections if any(lines)]


def list_items(lines):
    """Rows "  NAME   what it is", whose texts may go on in indented lines."""
    items = []
    for line in lines:
        match = re.match(r' {1,4}(\S.*?)(?: {2,}(.*))?$', line)
        if match and not line.startswith(' ' * 8):
            items.append([match.group(1), [match.group(2)] if match.group(2) else []])
        elif items:
            items[-1][1].append(line.strip())
    return [['.TP', '.B ' + escaped(name), escaped(' '.join(text)) or '\\&'] for name, text in items]


def paragraphs(lines):
    body = []
    for block in '\n'.join(lines).strip('\n').split('\n\n'):
        is_laid_out = any(line.startswith('  ') for line in block.split('\n'))
        body += ['.PP', *(literal(block.split('\n')) if is_laid_out else [escaped(block)])]
    return body


def references(*pages):
    return ['.SH SEE ALSO', *(f'.BR {escaped(name)} ({section}){"," if position + 1 < len(pages) else ""}'
                              for position, (name, section) in enumerate(pages))]


def command_page(name, section, text, see_also):
    summary, usage, sections = split_help(text)
    body = ['.SH SYNOPSIS', '.B ' + escaped(usage)]
    # What a command does stands last in its help and first in its page.
    for heading, lines in sorted(sections, key=lambda part: part[0] is not None):
        body.append('.SH ' + (heading or 'Description').upper())
        if heading in LISTS:
            body += [line for item in list_items(lines) for line in item]
        else:
            body += literal(lines) if heading else paragraphs(lines)
    return page(name, section, summary[0].lower() + summary[1:], body + references(*see_also))


def command_pages(program):
    name = os.path.basename(program)
    section = 8 if name in DAEMONS else 1
    help_text = help_of([program])
    subcommands = [line.split()[0] for heading, lines in split_help(help_text)[2] if heading == 'Commands'
                   for line in lines if re.match(r' {1,4}\S', line)]
    related = [('vpdctl', 1)] if section == 8 else []
    related += [('orva_vpdd', 3), ('vpdd-record', 5), ('vpdd-activity-log', 5)]
    others = [(f'{name}-{subcommand}', section) for subcommand in subcommands]
    pages = {f'{name}.{section}': command_page(name, section, help_text, others + related)}
    for subcommand in subcommands:
        text = help_of([program, subcommand])
        pages[f'{name}-{subcommand}.{section}'] = command_page(f'{name}-{subcommand}', section, text, [(name, section), *related])
    return pages


# ---- the library

SECTION = re.compile(r'/\* ---- (.*?) -+ \*/')
TYPE = re.compile(r'(?:/\*\*(?:(?!\*/).)*\*/\s*)?typedef struct.*?\n\} \w+;', re.DOTALL)
# A declaration and the remark that may stand behind it.
DECLARATION = r'([^/;{}#]+;)(?:[ \t]*/\*\*<((?:(?!\*/).)*)\*/)?\s*'
DESCRIBED = re.compile(rf'/\*\*(?!<)(?P<comment>(?:(?!\*/).)*)\*/\s*(?P<declarations>(?:{DECLARATION})+)', re.DOTALL)


def comment_text(comment):
    """A documentation comment as (description, [(tag and name, text)])."""
    text = ' '.join(line.strip().removeprefix('*').strip() for line in comment.split('\n')).strip()
    text = text.replace('@brief ', '').replace('`', '')
    head, *tagged = re.split(r'\s*@(param|return) ', text)
    tags = []
    for kind, rest in zip(tagged[::2], tagged[1::2]):
        name, _, meaning = rest.partition(' ') if kind == 'param' else ('Result', '', rest)
        tags.append((name, meaning or rest))
    return head, tags


def declaration_line(declaration, remark):
    declaration, remark = (escaped(' '.join(text.split())) for text in (declaration, remark))
    return f'.BR "{declaration}" " ({remark})"' if remark else '.B ' + declaration


def library_page(header):
    conventions = re.search(r'Conventions\n \* -+\n(.*?)\n \*/', header, re.DOTALL).group(1)
    blocks = [' '.join(line.strip().removeprefix('*').strip() for line in block.split('\n')).replace('`', '')
              for block in re.split(r'\n \*\n', conventions)]
    body = ['.SH SYNOPSIS', '.nf', '.B #include <orva_vpdd.h>', '.PP',
            'cc ... $(pkg\\-config \\-\\-cflags \\-\\-libs orva_vpdd)', '.fi', '.SH DESCRIPTION',
            'The functions by family. The process that loads the library provides the platform functions, which the',
            'headers in', '.I orva_vpdd/platform', 'declare.']
    for block in blocks:
        body += ['.PP', escaped(block)]
    _, *parts = SECTION.split(header)
    for title, text in zip(parts[::2], parts[1::2]):
        if title == 'Records':
            continue
        body.append('.SH ' + escaped(title.upper()))
        for match in DESCRIBED.finditer(TYPE.sub('', text)):
            description, tags = comment_text(match['comment'])
            for position, (declaration, remark) in enumerate(re.findall(DECLARATION, match['declarations'], re.DOTALL)):
                body += ['.TQ' if position else '.TP', declaration_line(declaration, remark)]
            body.append(escaped(description) or '\\&')
            for name, meaning in tags:
                body += ['.br', f'.I {escaped(name)}:' if name != 'Result' else 'Result:', escaped(meaning)]
    body += references(('vpdctl', 1), ('vpdd-record', 5), ('vpdd-activity-log', 5))
    return page('orva_vpdd', 3, 'vital product data of a managed server', body)


# ---- the record

SIZES = {'char': 1, 'uint8_t': 1, 'int8_t': 1, 'uint16_t': 2, 'int32_t': 4, 'uint32_t': 4, 'float': 4, 'int64_t': 8}
STRUCT = re.compile(r'(?:/\*\*((?:(?!\*/).)*)\*/\s*)?typedef struct (\w+) \{(.*?)\n\} \2;', re.DOTALL)
FIELD = re.compile(r'^\s*(\w+) (\w+)((?:\[\d+\])*);(?:\s*/\*\*<\s*(.*?)\s*\*/)?', re.MULTILINE | re.DOTALL)


def layout(name, structs):
    """Fields of a record as (offset, size, type, name, meaning), its size and alignment, by the C ABI's natural alignment."""
    offset, alignment, fields = 0, 1, []
    for kind, field, dimensions, meaning in FIELD.findall(structs[name][1]):
        if kind in structs:
            _, size, align = layout(kind, structs)
        else:
            size = align = SIZES[kind]
        for dimension in re.findall(r'\d+', dimensions):
            size *= int(dimension)
        offset += -offset % align
        fields.append((offset, size, kind + dimensions, field, ' '.join(meaning.split())))
        offset += size
        alignment = max(alignment, align)
    return fields, offset + -offset % alignment, alignment


def record_page(header):
    structs = {name: (comment, body) for comment, name, body in STRUCT.findall(header)}
    body = ['.SH DESCRIPTION',
            'What the library keeps of a component, copies out in its look\\-ups and writes to the activity log. Numbers are',
            'little\\-endian; texts are zero\\-filled and end inside their field. The layout is the same on 32\\-bit ARM and on',
            '64\\-bit Linux.']
    for name in ('ComponentVpdRecord', 'SpdInfo', 'OemCpuRecord', 'PsuFwVersion'):
        fields, size, _ = layout(name, structs)
        comment = ' '.join(line.strip().removeprefix('*').strip() for line in structs[name][0].split('\n')).strip()
        body += ['.SH ' + name, escaped(comment.replace('`', '')), f'{size} bytes in all.' if str(size) not in comment else '\\&',
                 '.PP', '.nf', escaped(f'{"Offset":>6}  {"Size":>4}  {"Type":<14}  Field')]
        body += [escaped(f'{offset:6}  {length:4}  {kind:<14}  {field}' + (f': {meaning}' if meaning else ''))
                 for offset, length, kind, field, meaning in fields]
        body.append('.fi')
    body += references(('vpdd-activity-log', 5), ('orva_vpdd', 3), ('vpdctl', 1))
    return page('vpdd-record', 5, 'record of a component', body)


# ---- what the script does

def all_pages(header_file, programs):
    with open(header_file, encoding='utf-8') as file:
        header = file.read()
    pages = {'orva_vpdd.3': library_page(header), 'vpdd-record.5': record_page(header)}
    for program in programs:
        pages.update(command_pages(program))
    return pages


def main():
    verb, folder, header, *programs = sys.argv[1:]
    faults = 0
    for name, text in sorted(all_pages(header, programs).items()):
        path = os.path.join(folder, name)
        if verb == 'write':
            with open(path, 'w', encoding='utf-8') as file:
                file.write(text)
            continue
        present = open(path, encoding='utf-8').read() if os.path.exists(path) else ''
        if present != text:
            print(f'docs/man/{name} is not up to date: run ./dev man')
            faults += 1
    return 1 if faults else 0


sys.exit(main())
