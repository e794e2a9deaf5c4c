// SCSI operation codes by name, as the library of events has them.

export const operations = new Map([
    [0x00, 'TEST UNIT READY'], [0x03, 'REQUEST SENSE'], [0x08, 'READ(6)'], [0x0a, 'WRITE(6)'], [0x12, 'INQUIRY'],
    [0x15, 'MODE SELECT(6)'], [0x16, 'RESERVE(6)'], [0x17, 'RELEASE(6)'], [0x1a, 'MODE SENSE(6)'],
    [0x1b, 'START STOP UNIT'], [0x25, 'READ CAPACITY(10)'], [0x28, 'READ(10)'], [0x2a, 'WRITE(10)'],
    [0x2e, 'WRITE AND VERIFY(10)'], [0x2f, 'VERIFY(10)'], [0x35, 'SYNCHRONIZE CACHE(10)'], [0x3c, 'READ BUFFER'],
    [0x3b, 'WRITE BUFFER'], [0x41, 'WRITE SAME(10)'], [0x42, 'UNMAP'], [0x4d, 'LOG SENSE'], [0x55, 'MODE SELECT(10)'],
    [0x5a, 'MODE SENSE(10)'], [0x5e, 'PERSISTENT RESERVE IN'], [0x5f, 'PERSISTENT RESERVE OUT'],
    [0x83, 'EXTENDED COPY'], [0x84, 'RECEIVE COPY RESULTS'], [0x88, 'READ(16)'], [0x89, 'COMPARE AND WRITE'],
    [0x8a, 'WRITE(16)'], [0x8e, 'WRITE AND VERIFY(16)'], [0x8f, 'VERIFY(16)'], [0x91, 'SYNCHRONIZE CACHE(16)'],
    [0x93, 'WRITE SAME(16)'], [0x9e, 'SERVICE ACTION IN(16)'], [0xa0, 'REPORT LUNS'], [0xa3, 'MAINTENANCE IN'],
    [0xa4, 'MAINTENANCE OUT'], [0xa8, 'READ(12)'], [0xaa, 'WRITE(12)'],
]);
