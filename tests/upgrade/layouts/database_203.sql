-- A database as release 203 left it: no diagnostics, no add-ons, contents of models in containers.
PRAGMA application_id = 0x44445230;
PRAGMA user_version = 1;
BEGIN;

CREATE TABLE ddr_header(name TEXT NOT NULL, description TEXT NOT NULL, creation_time INTEGER,
  next_handle INTEGER NOT NULL);
INSERT INTO ddr_header VALUES('D0', 'Header of database_203', 951782400, 15);

CREATE TABLE ddr_class("row" INTEGER PRIMARY KEY, "Class Name" TEXT NOT NULL, "Class Table" TEXT,
  "Type Id" INTEGER NOT NULL, "Class Version" INTEGER NOT NULL, "Base Type Id" INTEGER NOT NULL);
INSERT INTO ddr_class VALUES
  (0, 'ddr_Ddb', 'class_ddr_Ddb', 0x220006, 203, 1),
  (1, 'ddr_Model', 'class_ddr_Model', 0x220007, 203, 1),
  (2, 'ddr_Result', 'class_ddr_Result', 0x220001, 203, 1),
  (3, 'ddr_UserData', 'class_ddr_UserData', 0x220010, 203, 1),
  (4, 'odiK_Model', 'class_odiK_Model', 0x2a50001, 304, 1),
  (5, 'odiK_Container', 'class_odiK_Container', 0x2a50002, 101, 1),
  (6, 'odiK_Steps', 'class_odiK_Steps', 0x2a50003, 101, 1),
  (7, 'odiK_Thing', 'class_odiK_Thing', 0x2a50011, 12, 1),
  (8, 'odiK_Note', 'class_odiK_Note', 0x2a50010, 77, 0x2a50011),
  (9, 'odiK_Unused', NULL, 0x2a50012, 3, 1),
  (10, 'cls_MapHeader', 'class_cls_MapHeader', 0x230002, 1, 1);

CREATE TABLE ddr_attribute(class INTEGER NOT NULL, position INTEGER NOT NULL, name TEXT NOT NULL,
  kind INTEGER NOT NULL, element INTEGER NOT NULL, collection INTEGER NOT NULL,
  PRIMARY KEY(class, position)) WITHOUT ROWID;
-- ddr_Ddb
INSERT INTO ddr_attribute VALUES
  (0, 0, 'models', 15, 0x230002, 2),
  (0, 1, 'results', 15, 0x230002, 2),
  (0, 2, 'userData', 15, 0x230002, 2),
  (0, 3, 'name', 11, 1, 0),
  (0, 4, 'modifyTime', 5, 1, 0),
  (0, 5, 'creationTime', 5, 1, 0),
  (0, 6, 'analysisVersion', 11, 1, 0),
  (0, 7, 'sequenceData', 11, 1, 0),
  (0, 8, 'onlyHasUserDefinedData', 13, 1, 0),
  (0, 9, 'description', 11, 1, 0),
  (0, 10, 'ddbVersion', 5, 1, 0);
-- ddr_Model
INSERT INTO ddr_attribute VALUES
  (1, 0, 'modelName', 11, 1, 0);
-- odiK_Model
INSERT INTO ddr_attribute VALUES
  (4, 0, 'matCont', 15, 0x2a50002, 0),
  (4, 1, 'sectCont', 15, 0x2a50002, 0),
  (4, 2, 'ampCont', 15, 0x2a50002, 0),
  (4, 3, 'constraintCont', 15, 0x2a50002, 0),
  (4, 4, 'bpCont', 15, 0x2a50002, 0),
  (4, 5, 'amcCont', 15, 0x2a50002, 0),
  (4, 6, 'loadCont', 15, 0x2a50002, 0),
  (4, 7, 'bcCont', 15, 0x2a50002, 0),
  (4, 8, 'ipCont', 15, 0x2a50002, 0),
  (4, 9, 'intCont', 15, 0x2a50002, 0),
  (4, 10, 'fCont', 15, 0x2a50002, 0),
  (4, 11, 'foCont', 15, 0x2a50002, 0),
  (4, 12, 'hoCont', 15, 0x2a50002, 0),
  (4, 13, 'steps', 15, 0x2a50003, 0),
  (4, 14, 'stepsorder', 15, 0x230002, 2);
-- odiK_Container
INSERT INTO ddr_attribute VALUES
  (5, 0, 'label', 11, 1, 0);
-- odiK_Steps
INSERT INTO ddr_attribute VALUES
  (6, 0, 'label', 11, 1, 0);
-- odiK_Thing
INSERT INTO ddr_attribute VALUES
  (7, 0, 'label', 11, 1, 0);
-- odiK_Note
INSERT INTO ddr_attribute VALUES
  (8, 0, 'title', 11, 1, 0),
  (8, 1, 'amount', 7, 1, 0),
  (8, 2, 'count', 5, 1, 0),
  (8, 3, 'checked', 13, 1, 0),
  (8, 4, 'about', 15, 0x2a50010, 0),
  (8, 5, 'parts', 15, 0x230002, 2),
  (8, 6, 'raw', 99, 1, 0);
-- odiK_Unused
INSERT INTO ddr_attribute VALUES
  (9, 0, 'value', 7, 1, 0);
-- cls_MapHeader
INSERT INTO ddr_attribute VALUES
  (10, 0, 'Target#Handle', 9, 1, 0);

CREATE TABLE ddr_entry(handle INTEGER NOT NULL, position INTEGER NOT NULL, Key TEXT,
  ClassID INTEGER NOT NULL, OID INTEGER NOT NULL, PRIMARY KEY(handle, position)) WITHOUT ROWID;
INSERT INTO ddr_entry VALUES
  (1, 0, 'Beam', 0x220007, 0),
  (1, 1, 'Plate', 0x220007, 1),
  (1, 3, 'Wing · 翼', 0x220007, 3),
  (2, 0, 'Static', 0x220001, 0),
  (2, 1, 'Modal', 0x220001, 1),
  (3, 0, 'Notes', 0x220010, 0),
  (4, 0, 'Beam', 0x220007, 0),
  (8, 0, 'Initial', 0x2a50003, 0),
  (8, 1, 'Step-1', 0x2a50003, 1),
  (9, 0, 'b', 0x2a50010, 0),
  (9, 4, 'a', 0x2a50010, 0);

CREATE TABLE "class_ddr_Ddb"("row" INTEGER PRIMARY KEY, "#uid" BLOB, "models#ClassID" INTEGER,
  "models#OID" INTEGER, "results#ClassID" INTEGER, "results#OID" INTEGER, "userData#ClassID" INTEGER,
  "userData#OID" INTEGER, "name", "modifyTime", "creationTime", "analysisVersion", "sequenceData",
  "onlyHasUserDefinedData", "description", "ddbVersion");
INSERT INTO "class_ddr_Ddb" VALUES
  (0, X'00000ddb000000000022000600000000', 0x230002, 3, 0x230002, 4, 0x230002, 5,
   '2000/02/29 00:00:00 database_203.ddr', 951786000, 951782400, 'Release 203-1',
   '2000_02_29-00.00.01 17000', 0, 'Wing', 203),
  (1, X'00000ddb000000000022000600000001', 0x230002, 0, 0x230002, 1, 0x230002, 2,
   '2000/02/29 00:00:00 database_203.ddr', 951868800, 951782400, 'Release 203-2',
   '2000_02_29-00.00.02 17000', 1, 'Wing, second load case', 203);

CREATE TABLE "class_ddr_Model"("row" INTEGER PRIMARY KEY, "#uid" BLOB, "modelName");
INSERT INTO "class_ddr_Model" VALUES
  (0, X'00000ddb000000000022000700000000', 'Beam'),
  (1, X'00000ddb000000000022000700000001', 'Plate'),
  (3, X'00000ddb000000000022000700000003', 'Wing · 翼');

CREATE TABLE "class_ddr_Result"("row" INTEGER PRIMARY KEY, "#uid" BLOB);
INSERT INTO "class_ddr_Result" VALUES
  (0, X'00000ddb000000000022000100000000'),
  (1, X'00000ddb000000000022000100000001');

CREATE TABLE "class_ddr_UserData"("row" INTEGER PRIMARY KEY, "#uid" BLOB);
INSERT INTO "class_ddr_UserData" VALUES
  (0, X'00000ddb000000000022001000000000');

CREATE TABLE "class_odiK_Model"("row" INTEGER PRIMARY KEY, "#uid" BLOB, "matCont#ClassID" INTEGER,
  "matCont#OID" INTEGER, "sectCont#ClassID" INTEGER, "sectCont#OID" INTEGER, "ampCont#ClassID" INTEGER,
  "ampCont#OID" INTEGER, "constraintCont#ClassID" INTEGER, "constraintCont#OID" INTEGER,
  "bpCont#ClassID" INTEGER, "bpCont#OID" INTEGER, "amcCont#ClassID" INTEGER, "amcCont#OID" INTEGER,
  "loadCont#ClassID" INTEGER, "loadCont#OID" INTEGER, "bcCont#ClassID" INTEGER, "bcCont#OID" INTEGER,
  "ipCont#ClassID" INTEGER, "ipCont#OID" INTEGER, "intCont#ClassID" INTEGER, "intCont#OID" INTEGER,
  "fCont#ClassID" INTEGER, "fCont#OID" INTEGER, "foCont#ClassID" INTEGER, "foCont#OID" INTEGER,
  "hoCont#ClassID" INTEGER, "hoCont#OID" INTEGER, "steps#ClassID" INTEGER, "steps#OID" INTEGER,
  "stepsorder#ClassID" INTEGER, "stepsorder#OID" INTEGER);
INSERT INTO "class_odiK_Model" VALUES
  (0, X'00000ddb0000000002a5000100000000', 0x2a50002, 0, 0x2a50002, 5, 0x2a50002, 10, 0x2a50002, 2,
   0x2a50002, 7, 0x2a50002, 12, 0x2a50002, 4, 0x2a50002, 9, 0x2a50002, 1, 0x2a50002, 6, 0x2a50002, 11,
   0x2a50002, 3, 0x2a50002, 8, 0x2a50003, 0, 0x230002, 6),
  (1, X'00000ddb0000000002a5000100000001', 0x2a50002, 13, 0x2a50002, 18, 0x2a50002, 23, 0x2a50002, 15,
   0x2a50002, 20, 0x2a50002, 25, 0x2a50002, 17, 0x2a50002, 22, 0x2a50002, 14, 0x2a50002, 19, 0x2a50002, 24,
   0x2a50002, 16, 0x2a50002, 21, 0x2a50003, 1, 0x230002, 7);

CREATE TABLE "class_odiK_Container"("row" INTEGER PRIMARY KEY, "#uid" BLOB, "label");
INSERT INTO "class_odiK_Container" VALUES
  (0, X'00000ddb0000000002a5000200000000', 'matCont of save 1'),
  (1, X'00000ddb0000000002a5000200000001', 'ipCont of save 1'),
  (2, X'00000ddb0000000002a5000200000002', 'constraintCont of save 1'),
  (3, X'00000ddb0000000002a5000200000003', 'foCont of save 1'),
  (4, X'00000ddb0000000002a5000200000004', 'loadCont of save 1'),
  (5, X'00000ddb0000000002a5000200000005', 'sectCont of save 1'),
  (6, X'00000ddb0000000002a5000200000006', 'intCont of save 1'),
  (7, X'00000ddb0000000002a5000200000007', 'bpCont of save 1'),
  (8, X'00000ddb0000000002a5000200000008', 'hoCont of save 1'),
  (9, X'00000ddb0000000002a5000200000009', 'bcCont of save 1'),
  (10, X'00000ddb0000000002a500020000000a', 'ampCont of save 1'),
  (11, X'00000ddb0000000002a500020000000b', 'fCont of save 1'),
  (12, X'00000ddb0000000002a500020000000c', 'amcCont of save 1'),
  (13, X'00000ddb0000000002a500020000000d', 'matCont of save 2'),
  (14, X'00000ddb0000000002a500020000000e', 'ipCont of save 2'),
  (15, X'00000ddb0000000002a500020000000f', 'constraintCont of save 2'),
  (16, X'00000ddb0000000002a5000200000010', 'foCont of save 2'),
  (17, X'00000ddb0000000002a5000200000011', 'loadCont of save 2'),
  (18, X'00000ddb0000000002a5000200000012', 'sectCont of save 2'),
  (19, X'00000ddb0000000002a5000200000013', 'intCont of save 2'),
  (20, X'00000ddb0000000002a5000200000014', 'bpCont of save 2'),
  (21, X'00000ddb0000000002a5000200000015', 'hoCont of save 2'),
  (22, X'00000ddb0000000002a5000200000016', 'bcCont of save 2'),
  (23, X'00000ddb0000000002a5000200000017', 'ampCont of save 2'),
  (24, X'00000ddb0000000002a5000200000018', 'fCont of save 2'),
  (25, X'00000ddb0000000002a5000200000019', 'amcCont of save 2');

CREATE TABLE "class_odiK_Steps"("row" INTEGER PRIMARY KEY, "#uid" BLOB, "label");
INSERT INTO "class_odiK_Steps" VALUES
  (0, X'00000ddb0000000002a5000300000000', 'first'),
  (1, X'00000ddb0000000002a5000300000001', 'second');

CREATE TABLE "class_odiK_Thing"("row" INTEGER PRIMARY KEY, "#uid" BLOB, "label");
INSERT INTO "class_odiK_Thing" VALUES
  (0, X'00000ddb0000000002a5001100000000', 'under note 0'),
  (2, X'00000ddb0000000002a5001100000002', 'under note 5');

CREATE TABLE "class_odiK_Note"("row" INTEGER PRIMARY KEY, "#uid" BLOB, "##BaseClassOID", "title", "amount",
  "count", "checked", "about#ClassID" INTEGER, "about#OID" INTEGER, "parts#ClassID" INTEGER,
  "parts#OID" INTEGER, "raw");
INSERT INTO "class_odiK_Note" VALUES
  (0, X'00000ddb0000000002a5001000000000', 0, '', -1.7976931348623157e+308, -2147483648, 0, NULL, NULL,
   NULL, NULL, NULL),
  (5, X'00000ddb0000000002a5001000000005', 2, 'it''s "here" · 翼', 0.1, 2147483647, 1, 0x2a50010, 0,
   0x230002, 8, 'kept as it is');

CREATE TABLE "class_cls_MapHeader"("row" INTEGER PRIMARY KEY, "#uid" BLOB, "Target#Handle");
INSERT INTO "class_cls_MapHeader" VALUES
  (0, X'00000ddb000000000023000200000000', 1),
  (1, X'00000ddb000000000023000200000001', 2),
  (2, X'00000ddb000000000023000200000002', 3),
  (3, X'00000ddb000000000023000200000003', 4),
  (4, X'00000ddb000000000023000200000004', 5),
  (5, X'00000ddb000000000023000200000005', 6),
  (6, X'00000ddb000000000023000200000006', 7),
  (7, X'00000ddb000000000023000200000007', 8),
  (8, X'00000ddb000000000023000200000008', 9);

CREATE INDEX "class_ddr_Ddb#uid" ON "class_ddr_Ddb"("#uid");
CREATE INDEX "class_ddr_Model#uid" ON "class_ddr_Model"("#uid");
CREATE INDEX "class_ddr_Result#uid" ON "class_ddr_Result"("#uid");
CREATE INDEX "class_ddr_UserData#uid" ON "class_ddr_UserData"("#uid");
CREATE INDEX "class_odiK_Model#uid" ON "class_odiK_Model"("#uid");
CREATE INDEX "class_odiK_Container#uid" ON "class_odiK_Container"("#uid");
CREATE INDEX "class_odiK_Steps#uid" ON "class_odiK_Steps"("#uid");
CREATE INDEX "class_odiK_Thing#uid" ON "class_odiK_Thing"("#uid");
CREATE INDEX "class_odiK_Note#uid" ON "class_odiK_Note"("#uid");
CREATE INDEX "class_cls_MapHeader#uid" ON "class_cls_MapHeader"("#uid");
CREATE INDEX ddr_entry_key ON ddr_entry(handle, Key);
COMMIT;
