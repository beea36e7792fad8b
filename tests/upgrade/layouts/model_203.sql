-- Models as release 203 left them, in a database of today: their contents are in containers.
PRAGMA application_id = 0x44445230;
PRAGMA user_version = 1;
BEGIN;

CREATE TABLE ddr_header(name TEXT NOT NULL, description TEXT NOT NULL, creation_time INTEGER,
  next_handle INTEGER NOT NULL);
INSERT INTO ddr_header VALUES('D0', 'Header of model_203', 951782400, 20);

CREATE TABLE ddr_class("row" INTEGER PRIMARY KEY, "Class Name" TEXT NOT NULL, "Class Table" TEXT,
  "Type Id" INTEGER NOT NULL, "Class Version" INTEGER NOT NULL, "Base Type Id" INTEGER NOT NULL);
INSERT INTO ddr_class VALUES
  (0, 'ddr_Ddb', 'class_ddr_Ddb', 0x220006, 848, 1),
  (1, 'ddr_Model', 'class_ddr_Model', 0x220007, 203, 1),
  (2, 'ddr_Result', 'class_ddr_Result', 0x220001, 203, 1),
  (3, 'ddr_UserData', 'class_ddr_UserData', 0x220010, 203, 1),
  (4, 'odiK_Model', 'class_odiK_Model', 0x2a50001, 304, 1),
  (5, 'odiK_Container', 'class_odiK_Container', 0x2a50002, 101, 1),
  (6, 'odiK_Steps', 'class_odiK_Steps', 0x2a50003, 101, 1),
  (7, 'odiK_Thing', 'class_odiK_Thing', 0x2a50011, 12, 1),
  (8, 'odiK_Note', 'class_odiK_Note', 0x2a50010, 77, 0x2a50011),
  (9, 'odiK_Unused', NULL, 0x2a50012, 3, 1),
  (10, 'cls_MapHeader', 'class_cls_MapHeader', 0x230002, 1, 1),
  (11, 'cls_ListObj', 'class_cls_ListObj', 0x210001, 1, 1),
  (12, 'dia_DiagnosticData', 'class_dia_DiagnosticData', 0x240001, 1, 1),
  (13, 'dia_Message', 'class_dia_Message', 0x240002, 1, 1),
  (14, 'cls_ListHeader', 'class_cls_ListHeader', 0x230001, 1, 1);

CREATE TABLE ddr_attribute(class INTEGER NOT NULL, position INTEGER NOT NULL, name TEXT NOT NULL,
  kind INTEGER NOT NULL, element INTEGER NOT NULL, collection INTEGER NOT NULL,
  PRIMARY KEY(class, position)) WITHOUT ROWID;
-- ddr_Ddb
INSERT INTO ddr_attribute VALUES
  (0, 0, 'models', 15, 0x220007, 2),
  (0, 1, 'results', 15, 0x230002, 2),
  (0, 2, 'userData', 15, 0x230002, 2),
  (0, 3, 'diagnosticData', 15, 0x210001, 1),
  (0, 4, 'name', 11, 1, 0),
  (0, 5, 'modifyTime', 5, 1, 0),
  (0, 6, 'creationTime', 5, 1, 0),
  (0, 7, 'analysisVersion', 11, 1, 0),
  (0, 8, 'sequenceData', 11, 1, 0),
  (0, 9, 'onlyHasUserDefinedData', 13, 1, 0),
  (0, 10, 'description', 11, 1, 0),
  (0, 11, 'ddbVersion', 5, 1, 0),
  (0, 12, 'productAddOns', 15, 0x230001, 1);
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
-- cls_ListObj
INSERT INTO ddr_attribute VALUES
  (11, 0, 'Target#Handle', 9, 1, 0);
-- dia_DiagnosticData
INSERT INTO ddr_attribute VALUES
  (12, 0, 'messages', 15, 0x210001, 1);
-- dia_Message
INSERT INTO ddr_attribute VALUES
  (13, 0, 'time', 5, 1, 0),
  (13, 1, 'severity', 5, 1, 0),
  (13, 2, 'text', 11, 1, 0);
-- cls_ListHeader
INSERT INTO ddr_attribute VALUES
  (14, 0, 'Target#Handle', 9, 1, 0);

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
  (7, 0, '', 0x240002, 0),
  (7, 1, '', 0x240002, 1),
  (8, 0, '', 0x240001, 0),
  (9, 0, '', 0x240001, 0),
  (11, 0, 'FENTAL', 0x0, -1),
  (11, 1, 'KORU', 0x0, -1),
  (13, 0, 'Initial', 0x2a50003, 0),
  (13, 1, 'Step-1', 0x2a50003, 1),
  (14, 0, 'b', 0x2a50010, 0),
  (14, 4, 'a', 0x2a50010, 0);

CREATE TABLE "class_ddr_Ddb"("row" INTEGER PRIMARY KEY, "#uid" BLOB, "models#ClassID" INTEGER,
  "models#OID" INTEGER, "results#ClassID" INTEGER, "results#OID" INTEGER, "userData#ClassID" INTEGER,
  "userData#OID" INTEGER, "diagnosticData#ClassID" INTEGER, "diagnosticData#OID" INTEGER, "name",
  "modifyTime", "creationTime", "analysisVersion", "sequenceData", "onlyHasUserDefinedData", "description",
  "ddbVersion", "productAddOns#ClassID" INTEGER, "productAddOns#OID" INTEGER);
INSERT INTO "class_ddr_Ddb" VALUES
  (0, X'00000ddb000000000022000600000000', 0x230002, 3, 0x230002, 4, 0x230002, 5, 0x210001, 1,
   '2000/02/29 00:00:00 model_203.ddr', 951786000, 951782400, 'Release 848-1', '2000_02_29-00.00.01 17000',
   0, 'Wing', 891, 0x230001, 0),
  (1, X'00000ddb000000000022000600000001', 0x230002, 0, 0x230002, 1, 0x230002, 2, 0x210001, 2,
   '2000/02/29 00:00:00 model_203.ddr', 951868800, 951782400, 'Release 848-2', '2000_02_29-00.00.02 17000',
   1, 'Wing, second load case', 891, 0x230001, 1);

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
  (6, X'00000ddb000000000023000200000006', 12),
  (7, X'00000ddb000000000023000200000007', 13),
  (8, X'00000ddb000000000023000200000008', 14);

CREATE TABLE "class_cls_ListObj"("row" INTEGER PRIMARY KEY, "#uid" BLOB, "Target#Handle");
INSERT INTO "class_cls_ListObj" VALUES
  (0, X'00000ddb000000000021000100000000', 7),
  (1, X'00000ddb000000000021000100000001', 8),
  (2, X'00000ddb000000000021000100000002', 9);

CREATE TABLE "class_dia_DiagnosticData"("row" INTEGER PRIMARY KEY, "#uid" BLOB, "messages#ClassID" INTEGER,
  "messages#OID" INTEGER);
INSERT INTO "class_dia_DiagnosticData" VALUES
  (0, X'00000ddb000000000024000100000000', 0x210001, 0);

CREATE TABLE "class_dia_Message"("row" INTEGER PRIMARY KEY, "#uid" BLOB, "time", "severity", "text");
INSERT INTO "class_dia_Message" VALUES
  (0, X'00000ddb000000000024000200000000', 951782401, 1, 'mesh is coarse'),
  (1, X'00000ddb000000000024000200000001', 951782402, 2, 'no material');

CREATE TABLE "class_cls_ListHeader"("row" INTEGER PRIMARY KEY, "#uid" BLOB, "Target#Handle");
INSERT INTO "class_cls_ListHeader" VALUES
  (0, X'00000ddb000000000023000100000000', 10),
  (1, X'00000ddb000000000023000100000001', 11);

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
CREATE INDEX "class_cls_ListObj#uid" ON "class_cls_ListObj"("#uid");
CREATE INDEX "class_dia_DiagnosticData#uid" ON "class_dia_DiagnosticData"("#uid");
CREATE INDEX "class_dia_Message#uid" ON "class_dia_Message"("#uid");
CREATE INDEX "class_cls_ListHeader#uid" ON "class_cls_ListHeader"("#uid");
CREATE INDEX ddr_entry_key ON ddr_entry(handle, Key);
COMMIT;
