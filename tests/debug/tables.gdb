echo == instances\n
print *fixedKeys
print *variableKeys
print *typedKeys
print *undefinedKeys
echo == nodes\n
print *present
print *leaf
print *fullBucket->root
print *freeNode
echo == buckets\n
print *fullBucket
print *emptyBucket
print *fixedKeys->buckets
print *variableKeys->buckets
print *typedKeys->buckets
echo == commands\n
morva-tree fixedKeys 0
morva-tree *fixedKeys 0
morva-records fixedKeys 4
morva-records fixedKeys 2 Reading
morva-records variableKeys
morva-records variableKeys 1 int32_t
morva-records undefinedKeys
echo == bounds\n
set print elements 3
print *fullBucket
print *fixedKeys->buckets
set print elements 200
echo == what is wrong\n
print noInstance
print brokenInstance
print brokenNode
print longKey[0]
print brokenBucket
print circle
print brokenArray
set confirm off
python
for command in ("morva-tree fixedKeys 1", "morva-tree fixedKeys", "morva-tree &noInstance 0",
                "morva-tree 0 0", "morva-tree &brokenInstance 0", "morva-records",
                "morva-records 16", "morva-records &brokenInstance", "morva-records brokenArray"):
    try:
        gdb.execute(command)
    except gdb.error as error:
        print("%s: %s" % (command, error))
end
