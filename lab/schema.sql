-- The catalogue of a lab installation: what qvrlabd serves with --catalogue and writes with --store.
--
-- Identifiers are in their long text form of 53 characters (a checksum, then the five words of the
-- identifier in hexadecimal), "0" is the null identifier. Times are seconds since 1970-01-01 UTC; 2147483647 and
-- 9223372036854775807 both mean forever. Numbers of 64 unsigned bits stand as signed ones.

-- What the file is.
CREATE TABLE meta (
  key   TEXT PRIMARY KEY,  -- "format", "sample", "midnight"
  value TEXT NOT NULL
);

-- The client id map: one row a client.
CREATE TABLE client (
  clientid TEXT PRIMARY KEY,
  name     TEXT NOT NULL
);

-- Configuration resources. Each has its "type" and "name" among its attributes.
CREATE TABLE resource (
  id       INTEGER PRIMARY KEY,
  database TEXT NOT NULL   -- "qvrd" or "qvrexecd"
);
CREATE TABLE resource_attribute (
  resource INTEGER NOT NULL REFERENCES resource (id),
  name     TEXT NOT NULL,
  position INTEGER NOT NULL,  -- of the value, from 0; -1 for an attribute without values
  value    TEXT,
  PRIMARY KEY (resource, name, position)
);

CREATE TABLE volume (
  id        INTEGER PRIMARY KEY,  -- position in replies
  volid     TEXT NOT NULL UNIQUE,
  head      INTEGER NOT NULL,     -- the word in front of the record, of no meaning to clients
  volume    TEXT NOT NULL,
  family    TEXT NOT NULL,
  type      TEXT NOT NULL,
  location  TEXT NOT NULL,
  pool      TEXT NOT NULL,
  barcode   TEXT NOT NULL,
  capacity  INTEGER NOT NULL,     -- kilobytes, as the next two
  written   INTEGER NOT NULL,
  read      INTEGER NOT NULL,
  next      INTEGER NOT NULL,     -- next file number
  nrec      INTEGER NOT NULL,     -- next record number
  volaccess INTEGER NOT NULL,
  volhold   INTEGER NOT NULL,
  olabel    INTEGER NOT NULL,
  labeled   INTEGER NOT NULL,
  volretent INTEGER NOT NULL,
  volflags  INTEGER NOT NULL,     -- 1 full, 2 in use, 16 recyclable, 32 read-only, 128 scan, 512 manual
  mounts    INTEGER NOT NULL,
  recycled  INTEGER NOT NULL,
  avail     INTEGER NOT NULL,     -- 1 near, 2 smart media
  metric    INTEGER NOT NULL
);
CREATE TABLE volume_attribute (
  volume   INTEGER NOT NULL REFERENCES volume (id),
  name     TEXT NOT NULL,
  position INTEGER NOT NULL,
  value    TEXT,
  PRIMARY KEY (volume, name, position)
);

CREATE TABLE saveset (
  id        INTEGER PRIMARY KEY,
  ssid      TEXT NOT NULL UNIQUE,
  pssid     TEXT NOT NULL,        -- the save set that this one continues, or the null identifier
  head      INTEGER NOT NULL,
  level     INTEGER NOT NULL,
  savetime  INTEGER NOT NULL,
  sscreate  INTEGER NOT NULL,
  ssinsert  INTEGER NOT NULL,
  sscomp    INTEGER NOT NULL,
  clientid  TEXT NOT NULL,
  ssflags   INTEGER NOT NULL,
  client    TEXT NOT NULL,
  name      TEXT NOT NULL,
  totalsize INTEGER NOT NULL,     -- bytes
  nfiles    INTEGER NOT NULL,
  ssbrowse  INTEGER NOT NULL,     -- seconds behind ssinsert; 4294967295 is forever
  ssretent  INTEGER NOT NULL
);
CREATE INDEX saveset_time ON saveset (savetime);
CREATE TABLE saveset_attribute (
  saveset  INTEGER NOT NULL REFERENCES saveset (id),
  name     TEXT NOT NULL,
  position INTEGER NOT NULL,
  value    TEXT,
  PRIMARY KEY (saveset, name, position)
) WITHOUT ROWID;

-- The copies of a save set.
CREATE TABLE clone (
  saveset  INTEGER NOT NULL REFERENCES saveset (id),
  position INTEGER NOT NULL,      -- from 0
  cloneid  INTEGER NOT NULL,      -- also the time at which the copy was made
  clflags  INTEGER NOT NULL,
  PRIMARY KEY (saveset, position)
) WITHOUT ROWID;
-- The pieces of a copy, each on one volume.
CREATE TABLE fragment (
  saveset    INTEGER NOT NULL REFERENCES saveset (id),
  clone      INTEGER NOT NULL,    -- position of the copy
  position   INTEGER NOT NULL,    -- from 0, in the order of offsets
  fragoffset INTEGER NOT NULL,    -- bytes from the start of the save set
  volid      TEXT NOT NULL,
  mediafile  INTEGER NOT NULL,
  mediarec   INTEGER NOT NULL,
  mediamark  INTEGER NOT NULL,
  ssaccess   INTEGER NOT NULL,
  PRIMARY KEY (saveset, clone, position)
) WITHOUT ROWID;
CREATE INDEX fragment_volume ON fragment (volid);

-- Changes of save sets and copies, also of those that are gone.
CREATE TABLE history (
  id        INTEGER PRIMARY KEY,
  ssid      TEXT NOT NULL,
  cloneid   INTEGER NOT NULL,     -- 0: the save set itself
  operation INTEGER NOT NULL,     -- 0 create, 1 update, 2 delete
  timestamp INTEGER NOT NULL,
  user      TEXT NOT NULL,
  property  TEXT NOT NULL,
  oldvalue  TEXT NOT NULL,
  newvalue  TEXT NOT NULL,
  validity  INTEGER NOT NULL,
  client    TEXT NOT NULL,        -- of the save set, as the next two
  name      TEXT NOT NULL,
  clientid  TEXT NOT NULL
);
