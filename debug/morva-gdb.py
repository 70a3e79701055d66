"""Shows Morva's tables in gdb.

    (gdb) source morva-gdb.py
    (gdb) print *inst                  mode, options, counts and layout of an instance
    (gdb) print *node                  links, owner, key and data of a record
    (gdb) print *inst->buckets         the buckets in use, with their keys
    (gdb) print *bucket                a bucket's tree in key order
    (gdb) print table                  a C++ table, with its keys and data
    (gdb) morva-tree INST BUCKET       the tree of one bucket, with addresses
    (gdb) morva-records INST [N [TYPE]]  the first N records, data shown as TYPE

All is read from memory alone: nothing is called in the program, so that core
files do as well. What cannot be read, or makes no sense, is said so in place.
`set print elements` bounds how much is shown.

The offsets are those of the public headers, which no version 1 changes; the
program needs debug information for the structures it names, the library none.
"""
import itertools
import re
import struct

import gdb
import gdb.printing

# ---- The public layouts: record_node.h, bucket_array.h, flags.h ----------------

NODE_SIZE = 24
PREFIX_SIZE = 8
LINKS_SIZE = 16
BUCKET_SIZE = 16
ARRAY_HEAD = 16
LARGEST_MASK = (1 << 20) - 1

LINK_HEAVY = 1
LINK_THREAD = 2

FLAG_DEFINED = 0x2
FLAG_FIXED_KEY = 0x4
FLAG_VAR_KEY = 0x20
FLAG_SUM = 0x100
FLAG_MULTI_DATA = 0x200

OPTIONS = (
    (0x1, "flagUnordered"),
    (0x8, "flagNoLock"),
    (0x10, "flagLockOpt"),
    (0x40, "flagOrdered"),
    (0x80, "flagPackOpt"),
    (0x100, "flagSum"),
    (0x200, "flagMultiData"),
    (0x400, "flagDefineOpt"),
)

EYE_CATCHER = b"nevo"

# No tree in memory is higher.
TALLEST_TREE = 90
SHOWN_BYTES = 48
SHOWN_NAME = 64
# Chains are counted so far, for they may be long or broken.
COUNTED = 10000


class Bad(Exception):
    """Memory that does not hold what it should; the text says what is there."""


# ---- Memory ----------------------------------------------------------------------


def read(address, size):
    try:
        return gdb.selected_inferior().read_memory(address, size).tobytes()
    except (gdb.MemoryError, OverflowError):
        raise Bad("cannot read %s at 0x%x" % (counted(size, "byte"), address))


def words(address, form):
    return struct.unpack("<" + form, read(address, struct.calcsize("<" + form)))


def limit():
    """How many things to show; `set print elements` says it, 0 or unlimited for all."""
    return gdb.parameter("print elements") or (1 << 62)


def counted(number, thing):
    return "%d %s%s" % (number, thing, "" if number == 1 else "s")


def readable(data):
    """The text of `data`, or None where it is not plain text."""
    try:
        text = data.decode("utf-8")
    except UnicodeDecodeError:
        return None
    return text if text and text.isprintable() else None


def show_bytes(data, total=None):
    """Text in quotes where it is text, else its bytes in hexadecimal."""
    if not data:
        return '""'
    more = "..." if total is not None and total > len(data) else ""
    text = readable(data)
    if text is not None:
        return '"%s"%s' % (text.replace("\\", "\\\\").replace('"', '\\"'), more)
    return data.hex(" ") + more


def show_area(address, size):
    return show_bytes(read(address, min(size, SHOWN_BYTES)), size)


# ---- Instances and records ------------------------------------------------------------


class Instance:
    """The instance at an address, as far as records depend on it."""

    def __init__(self, address):
        if address == 0:
            raise Bad("the instance is null")
        self.address = address
        eye = read(address, 4)
        if eye != EYE_CATCHER:
            raise Bad("no instance at 0x%x: it begins with %s" % (address, show_bytes(eye)))
        (self.name_at,) = words(address + 8, "Q")
        (self.key_length,) = words(address + 216, "I")
        self.flags, self.hash_method = words(address + 288, "II")
        self.record_size, self.data_offset, self.data_length = words(address + 300, "III")
        (self.sum_offset,) = words(address + 316, "I")
        (self.total_memory,) = words(address + 344, "Q")
        (self.sum_increment,) = words(address + 368, "d")
        (self.buckets_at,) = words(address + 416, "Q")
        self.free_records_at, _, self.pinned_at = words(address + 456, "QQQ")

    def has(self, flag):
        return self.flags & flag != 0

    def mode(self):
        if self.has(FLAG_FIXED_KEY):
            return "fixed keys"
        return "variable keys" if self.has(FLAG_VAR_KEY) else "typed keys"

    def options(self):
        return " | ".join(name for bit, name in OPTIONS if self.has(bit)) or "none"

    def name(self):
        """The name has no terminator: it ends where what follows is no text."""
        if self.name_at == 0:
            return "without a name"
        data = b""
        for i in range(SHOWN_NAME):
            try:
                byte = read(self.name_at + i, 1)
            except Bad as bad:
                if i == 0:
                    return "<%s>" % bad
                break
            if not 0x20 <= byte[0] < 0x7F:
                break
            data += byte
        return '"%s"' % data.decode("ascii")

    def layout(self):
        if not self.has(FLAG_DEFINED):
            return "not fixed yet"
        if self.has(FLAG_VAR_KEY):
            return "key of any length, then %d bytes of data" % self.data_length
        parts = ["key area +0 to +%d" % self.key_length]
        data = self.data_offset
        if self.has(FLAG_SUM):
            parts.append("sum +%d" % self.sum_offset)
        if self.has(FLAG_MULTI_DATA):
            parts.append("links +%d" % data)
            data += LINKS_SIZE
        parts.append("data +%d, %d bytes" % (data, self.data_length))
        return ", ".join(parts)

    def counts(self):
        """mask, elementCount, usedBuckets"""
        if self.buckets_at == 0:
            raise Bad("no buckets yet")
        return array_head(self.buckets_at)

    def bucket_at(self, index):
        mask = self.counts()[0]
        if not 0 <= index <= mask:
            raise Bad("no bucket %d: they are 0 to %d" % (index, mask))
        return self.buckets_at + ARRAY_HEAD + index * BUCKET_SIZE


def array_head(address):
    mask, elements, used = words(address, "III")
    if mask > LARGEST_MASK or mask & (mask + 1):
        raise Bad("no bucket array at 0x%x: its mask is 0x%x" % (address, mask))
    return mask, elements, used


class Record:
    """The live record of the node at an address, `inst` its instance."""

    def __init__(self, address, inst):
        self.address = address
        self.inst = inst
        self.base = address + NODE_SIZE

    def key_place(self):
        """Address and length of the key bytes."""
        inst = self.inst
        if not inst.has(FLAG_FIXED_KEY | FLAG_VAR_KEY):
            return self.base, inst.key_length
        length, capacity = words(self.base, "II")
        longest = capacity if inst.has(FLAG_VAR_KEY) else inst.key_length
        if length > longest:
            raise Bad("key length %d is beyond %d" % (length, longest))
        return self.base + PREFIX_SIZE, length

    def key(self):
        return show_area(*self.key_place())

    def links_at(self):
        return self.base + self.inst.data_offset

    def data_at(self):
        inst = self.inst
        if inst.has(FLAG_VAR_KEY):
            return self.base + ((self.key_place()[1] + 19) & ~7)
        links = LINKS_SIZE if inst.has(FLAG_MULTI_DATA) else 0
        return self.base + inst.data_offset + links

    def data(self, data_type=None):
        if data_type is None:
            return show_area(self.data_at(), self.inst.data_length)
        return str(value_at(self.data_at(), data_type))

    def sum(self):
        return words(self.base + self.inst.sum_offset, "d")[0]

    def chain(self):
        """This record, and those that follow it under the same key."""
        yield self
        if not self.inst.has(FLAG_MULTI_DATA):
            return
        seen = {self.address}
        (links,) = words(self.links_at(), "Q")
        while links != 0:
            node = links - self.inst.data_offset - NODE_SIZE
            if node in seen:
                raise Bad("the chain of duplicates runs in a circle at 0x%x" % node)
            seen.add(node)
            yield Record(node, self.inst)
            (links,) = words(links, "Q")


def value_at(address, data_type):
    return gdb.Value(address).cast(data_type.pointer()).dereference()


def owner_of(node):
    """The instance that the node belongs to, or None for a free node."""
    (owner,) = words(node + 16, "Q")
    try:
        if owner != 0 and read(owner, 4) == EYE_CATCHER:
            return Instance(owner)
    except Bad:
        raise Bad("the owner 0x%x of node 0x%x cannot be read" % (owner, node))
    return None


def live_record(node):
    inst = owner_of(node)
    if inst is None:
        raise Bad("node 0x%x is free" % node)
    return Record(node, inst)


# ---- Trees ------------------------------------------------------------------------------


def walk(node, depth=0, seen=None):
    """(depth, node, problem) in key order; the problem is what ends a branch, else None."""
    seen = set() if seen is None else seen
    if node in seen:
        yield depth, node, "node 0x%x again: the links run in a circle" % node
        return
    if depth > TALLEST_TREE:
        yield depth, node, "deeper than any tree is"
        return
    seen.add(node)
    try:
        left, right = words(node, "QQ")
    except Bad as bad:
        yield depth, node, str(bad)
        return
    for link, side in ((left, "left"), (right, "right")):
        if side == "right":
            yield depth, node, None
        child = link & ~(LINK_HEAVY | LINK_THREAD)
        if link & LINK_THREAD or child == 0:
            continue
        yield from walk(child, depth + 1, seen)


def balance(node):
    left, right = words(node, "QQ")
    if left & LINK_HEAVY and right & LINK_HEAVY:
        return " heavy on both sides"
    if left & LINK_HEAVY:
        return " left-heavy"
    return " right-heavy" if right & LINK_HEAVY else ""


def tree_lines(root, addresses):
    """A line per node in key order, indented by depth."""
    shown = 0
    for depth, node, problem in walk(root):
        if shown == limit():
            yield "..."
            return
        shown += 1
        indent = "  " * (depth + 1)
        if problem is not None:
            yield "%s<%s>" % (indent, problem)
            continue
        try:
            record = live_record(node)
            line = indent + record.key()
            if addresses:
                line += "  at 0x%x%s" % (node, balance(node))
            if record.inst.has(FLAG_MULTI_DATA):
                further = sum(1 for _ in itertools.islice(record.chain(), COUNTED + 1)) - 1
                more = "%d or" % COUNTED if further == COUNTED else "%d" % further
                line += ", and %s more" % more if further else ""
            yield line
        except Bad as bad:
            yield "%s<%s>" % (indent, bad)


def keys_line(root):
    keys = []
    for _, node, problem in walk(root):
        if len(keys) == limit():
            keys.append("...")
            break
        try:
            keys.append(live_record(node).key() if problem is None else "<%s>" % problem)
        except Bad as bad:
            keys.append("<%s>" % bad)
    return ", ".join(keys)


def used_buckets(array):
    """(index, root, count) of the buckets that hold anything."""
    mask = array_head(array)[0]
    step = 4096
    for first in range(0, mask + 1, step):
        number = min(step, mask + 1 - first)
        data = read(array + ARRAY_HEAD + first * BUCKET_SIZE, number * BUCKET_SIZE)
        for i, (root, count, _) in enumerate(struct.iter_unpack("<QII", data)):
            if root != 0 or count != 0:
                yield first + i, root, count


def records(inst):
    """(bucket, record, problem) of all records: buckets, then keys, then duplicates in order."""
    if inst.buckets_at == 0:
        return
    for index, root, _ in used_buckets(inst.buckets_at):
        if root == 0:
            continue
        for _, node, problem in walk(root):
            if problem is not None:
                yield index, None, problem
                continue
            try:
                for record in live_record(node).chain():
                    yield index, record, None
            except Bad as bad:
                yield index, None, str(bad)


# ---- Printers -----------------------------------------------------------------------------


def referred(value):
    """What a reference refers to, and any other value as it is."""
    if value.type.strip_typedefs().code in (gdb.TYPE_CODE_REF, gdb.TYPE_CODE_RVALUE_REF):
        return value.referenced_value()
    return value


def address_of(value):
    return int(value.address) if value.address is not None else None


class InstancePrinter:
    def __init__(self, value):
        self.problem = None
        try:
            if value.address is None:
                raise Bad("not in memory")
            self.inst = Instance(address_of(value))
        except (Bad, gdb.MemoryError) as bad:
            self.problem = str(bad)

    def to_string(self):
        if self.problem is not None:
            return "MORVAInst <%s>" % self.problem
        return "MORVAInst %s" % self.inst.name()

    def children(self):
        if self.problem is not None:
            return
        inst = self.inst
        yield "mode", inst.mode()
        yield "options", inst.options()
        try:
            mask, elements, used = inst.counts()
            yield "records", str(elements)
            yield "buckets", "%d, %d used" % (mask + 1, used)
        except Bad as bad:
            yield "buckets", "<%s>" % bad
        yield "hash method", str(inst.hash_method)
        yield "layout", inst.layout()
        if inst.has(FLAG_SUM):
            yield "sum increment", "%g" % inst.sum_increment
        if not inst.has(FLAG_VAR_KEY):
            yield "record blocks", counted(inst.total_memory, "byte")
        yield "free records", self.chain_length(inst.free_records_at, 16)
        yield "pinned", self.chain_length(inst.pinned_at, 0)

    @staticmethod
    def chain_length(node, next_offset):
        """How long a chain is; bounded, for it may be broken."""
        seen = set()
        try:
            while node != 0:
                if node in seen:
                    return "<runs in a circle at 0x%x>" % node
                if len(seen) == COUNTED:
                    return "%d or more" % COUNTED
                seen.add(node)
                (node,) = words(node + next_offset, "Q")
        except Bad as bad:
            return "%d, then <%s>" % (len(seen), bad)
        return str(len(seen))


class NodePrinter:
    def __init__(self, value):
        self.node = address_of(value)

    def to_string(self):
        return "RecordNode"

    @staticmethod
    def link(word):
        if word == 0:
            return "none"
        target = word & ~(LINK_HEAVY | LINK_THREAD)
        heavy = ", heavy" if word & LINK_HEAVY else ""
        if word & LINK_THREAD:
            return "thread to 0x%x%s" % (target, heavy) if target else "thread to the end" + heavy
        return "child 0x%x%s" % (target, heavy)

    def children(self):
        if self.node is None:
            yield "problem", "<not in memory>"
            return
        try:
            left, right, owner = words(self.node, "QQQ")
            yield "left", self.link(left)
            yield "right", self.link(right)
            inst = owner_of(self.node)
            if inst is None:
                yield "owner", "none, the node is free; next 0x%x" % owner
                return
            yield "owner", "instance %s at 0x%x" % (inst.name(), owner)
            record = Record(self.node, inst)
            yield "key", record.key()
            if inst.has(FLAG_SUM):
                yield "sum", "%g" % record.sum()
            yield "data", "+%d at 0x%x: %s" % (
                record.data_at() - record.base, record.data_at(), record.data())
            if inst.has(FLAG_MULTI_DATA):
                following, back = words(record.links_at(), "QQ")
                yield "next", "0x%x" % following if following else "none"
                yield "back", "0x%x" % back
        except Bad as bad:
            yield "problem", "<%s>" % bad


class BucketPrinter:
    def __init__(self, value):
        self.bucket = address_of(value)

    def to_string(self):
        if self.bucket is None:
            return "Bucket <not in memory>"
        try:
            root, count = words(self.bucket, "QI")
        except Bad as bad:
            return "Bucket <%s>" % bad
        head = "Bucket, %s counted" % counted(count, "record")
        if root == 0:
            return head + ", no tree"
        return "\n".join([head + ", in key order:"] + list(tree_lines(root, False)))


class BucketArrayPrinter:
    def __init__(self, value):
        self.array = address_of(value)
        self.problem = None
        try:
            if self.array is None:
                raise Bad("not in memory")
            self.head = array_head(self.array)
        except Bad as bad:
            self.problem = str(bad)

    def to_string(self):
        if self.problem is not None:
            return "BucketArray <%s>" % self.problem
        mask, elements, used = self.head
        return "BucketArray of %s, %d used, %s" % (
            counted(mask + 1, "bucket"), used, counted(elements, "record"))

    def children(self):
        if self.problem is not None:
            return
        try:
            for number, (index, root, count) in enumerate(used_buckets(self.array)):
                if number == limit():
                    yield "more", "..."
                    return
                keys = keys_line(root) if root else "no tree"
                yield "[%d]" % index, "%d: %s" % (count, keys)
        except Bad as bad:
            yield "problem", "<%s>" % bad


class TablePrinter:
    """morva::table<Key, Data, ...>: keys and data, in the types the table has."""

    def __init__(self, value):
        self.type = value.type.strip_typedefs().unqualified()
        self.problem = None
        self.inst = None
        try:
            pointer = member(value, "inst_")
            if pointer is None:
                raise Bad("it has no instance")
            pointer = as_pointer(pointer)
            if pointer != 0:
                self.inst = Instance(pointer)
        except (Bad, gdb.error) as bad:
            self.problem = str(bad)

    def to_string(self):
        # The key and the data, for the further arguments say how, not what.
        arguments = ", ".join(str(self.argument(i)) for i in (0, 1) if self.argument(i) is not None)
        head = "%s<%s>" % (str(self.type).split("<")[0], arguments)
        if self.problem is not None:
            return "%s <%s>" % (head, self.problem)
        if self.inst is None:
            return head + ", no table"
        try:
            elements = self.inst.counts()[1]
        except Bad as bad:
            return "%s <%s>" % (head, bad)
        return "%s %s with %s" % (head, self.inst.name(), counted(elements, "record"))

    def argument(self, index):
        try:
            found = self.type.template_argument(index)
        except (RuntimeError, gdb.error):
            return None
        return found if isinstance(found, gdb.Type) else None

    def children(self):
        if self.inst is None:
            return
        shown = 0
        key_type, data_type = self.argument(0), self.argument(1)
        try:
            for _, record, problem in records(self.inst):
                if shown == limit():
                    yield "more", "..."
                    yield "more", "..."
                    return
                shown += 1
                if problem is not None:
                    yield "problem", "<%s>" % problem
                    yield "problem", ""
                    continue
                yield "key", self.key(record, key_type)
                yield "data", self.data(record, data_type)
        except (Bad, gdb.error) as bad:
            yield "problem", "<%s>" % bad
            yield "problem", ""

    def key(self, record, key_type):
        """Text as text, a key of fixed size as the value it is, packed fields as bytes."""
        place, length = record.key_place()
        plain = key_type is not None and self.inst.has(FLAG_FIXED_KEY)
        if plain and key_type.sizeof == length and not is_text(key_type):
            return value_at(place, key_type)
        return show_area(place, length)

    def data(self, record, data_type):
        if data_type is not None and data_type.sizeof == self.inst.data_length:
            return value_at(record.data_at(), data_type)
        if self.inst.data_length == 0:
            return "nothing"
        return record.data()

    def display_hint(self):
        return "map"


def is_text(key_type):
    return re.match(r"^(morva::text<|std::.*basic_string)", str(key_type.strip_typedefs())) is not None


def member(value, name):
    """The member of that name, of the value itself or of what it is derived from or made of."""
    kind = value.type.strip_typedefs()
    if kind.code != gdb.TYPE_CODE_STRUCT:
        return None
    for field in kind.fields():
        if field.name == name:
            return value[field]
    for field in kind.fields():
        if hasattr(field, "bitpos") and (field.is_base_class or field.name):
            found = member(value[field], name)
            if found is not None:
                return found
    return None


def as_pointer(value):
    """The address in a pointer, or in the first pointer that a smart pointer holds."""
    kind = value.type.strip_typedefs()
    if kind.code == gdb.TYPE_CODE_PTR:
        return int(value)
    if kind.code == gdb.TYPE_CODE_STRUCT:
        for field in kind.fields():
            if hasattr(field, "bitpos"):
                found = as_pointer(value[field])
                if found is not None:
                    return found
    return None


# ---- Commands --------------------------------------------------------------------------------


def instance_argument(text):
    """The instance that an expression leads to: a pointer, an instance, or a C++ table."""
    value = gdb.parse_and_eval(text)
    kind = value.type.strip_typedefs()
    if kind.code in (gdb.TYPE_CODE_PTR, gdb.TYPE_CODE_INT):
        return Instance(int(value))
    value = referred(value)
    held = member(value, "inst_")
    if held is not None:
        return Instance(as_pointer(held) or 0)
    if value.address is None:
        raise Bad("%s is not an instance" % text)
    return Instance(int(value.address))


class TreeCommand(gdb.Command):
    """Show the tree of a bucket in key order, indented by depth: morva-tree INST BUCKET"""

    def __init__(self):
        super().__init__("morva-tree", gdb.COMMAND_DATA, gdb.COMPLETE_EXPRESSION)

    def invoke(self, argument, from_tty):
        arguments = gdb.string_to_argv(argument)
        if len(arguments) != 2:
            raise gdb.GdbError("usage: morva-tree INST BUCKET")
        try:
            inst = instance_argument(arguments[0])
            index = int(gdb.parse_and_eval(arguments[1]))
            root, count = words(inst.bucket_at(index), "QI")
        except (Bad, gdb.error) as bad:
            raise gdb.GdbError(str(bad))
        print("bucket %d of %s: %s counted" % (index, inst.name(), counted(count, "record")))
        if root == 0:
            print("  no tree")
            return
        for line in tree_lines(root, True):
            print(line)


class RecordsCommand(gdb.Command):
    """Show records, bucket by bucket in key order: morva-records INST [N [TYPE]]

N is how many, 20 unless given. The data is shown as TYPE, else as text or bytes."""

    def __init__(self):
        super().__init__("morva-records", gdb.COMMAND_DATA, gdb.COMPLETE_EXPRESSION)

    def invoke(self, argument, from_tty):
        arguments = gdb.string_to_argv(argument)
        if not arguments:
            raise gdb.GdbError("usage: morva-records INST [N [TYPE]]")
        try:
            inst = instance_argument(arguments[0])
            most = int(gdb.parse_and_eval(arguments[1])) if len(arguments) > 1 else 20
            data_type = gdb.lookup_type(" ".join(arguments[2:])) if len(arguments) > 2 else None
            self.show(inst, most, data_type)
        except (Bad, gdb.error) as bad:
            raise gdb.GdbError(str(bad))

    @staticmethod
    def show(inst, most, data_type):
        shown = 0
        for bucket, record, problem in records(inst):
            if shown == most:
                print("...")
                return
            shown += 1
            if problem is not None:
                print("[%d] <%s>" % (bucket, problem))
                continue
            try:
                line = "[%d] %s" % (bucket, record.key())
                if inst.has(FLAG_SUM):
                    line += ", sum %g" % record.sum()
                print("%s: %s" % (line, record.data(data_type)))
            except (Bad, gdb.MemoryError) as bad:
                print("[%d] <%s>" % (bucket, bad))
        if shown == 0:
            print("no records")


def make_printers():
    printers = gdb.printing.RegexpCollectionPrettyPrinter("morva")
    for name, pattern, printer in (
        ("MORVAInst", "^MORVAInst$", InstancePrinter),
        ("RecordNode", "^RecordNode$", NodePrinter),
        ("Bucket", "^Bucket$", BucketPrinter),
        ("BucketArray", "^BucketArray$", BucketArrayPrinter),
        ("table", "^morva::table<.*>$", TablePrinter),
    ):
        printers.add_printer(name, pattern, lambda value, make=printer: make(referred(value)))
    return printers


gdb.printing.register_pretty_printer(gdb.current_objfile(), make_printers(), replace=True)
TreeCommand()
RecordsCommand()
