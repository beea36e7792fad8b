-- Models as release 401 left them, in a database of today: instance tables, old connector properties.
PRAGMA application_id = 0x44445230;
PRAGMA user_version = 1;
BEGIN;

CREATE TABLE ddr_header(name TEXT NOT NULL, description TEXT NOT NULL, creation_time INTEGER,
  next_handle INTEGER NOT NULL);
INSERT INTO ddr_header VALUES('D0', 'Header of model_401', 951782400, 23);

CREATE TABLE ddr_class("row" INTEGER PRIMARY KEY, "Class Name" TEXT NOT NULL, "Class Table" TEXT,
  "Type Id" INTEGER NOT NULL, "Class Version" INTEGER NOT NULL, "Base Type Id" INTEGER NOT NULL);
INSERT INTO ddr_class VALUES
  (0, 'ddr_Ddb', 'class_ddr_Ddb', 0x220006, 848, 1),
  (1, 'ddr_Model', 'class_ddr_Model', 0x220007, 401, 1),
  (2, 'ddr_Result', 'class_ddr_Result', 0x220001, 203, 1),
  (3, 'ddr_UserData', 'class_ddr_UserData', 0x220010, 203, 1),
  (4, 'ddr_ExtensionTable', 'class_ddr_ExtensionTable', 0x220018, 401, 1),
  (5, 'mdl_Extension', NULL, 0x250001, 1, 1),
  (6, 'mat_Extension', 'class_mat_Extension', 0x238007d, 401, 0x250001),
  (7, 'sec_Extension', 'class_sec_Extension', 0x260003b, 401, 0x250001),
  (8, 'kprC_Connectors', 'class_kprC_Connectors', 0x2ac0001, 401, 1),
  (9, 'kprC_ConnectorProperty', 'class_kprC_ConnectorProperty', 0x2ac0003, 401, 1),
  (10, 'odiK_Thing', 'class_odiK_Thing', 0x2a50011, 12, 1),
  (11, 'odiK_Note', 'class_odiK_Note', 0x2a50010, 77, 0x2a50011),
  (12, 'odiK_Unused', NULL, 0x2a50012, 3, 1),
  (13, 'cls_MapHeader', 'class_cls_MapHeader', 0x230002, 1, 1),
  (14, 'cls_ListObj', 'class_cls_ListObj', 0x210001, 1, 1),
  (15, 'dia_DiagnosticData', 'class_dia_DiagnosticData', 0x240001, 1, 1),
  (16, 'dia_Message', 'class_dia_Message', 0x240002, 1, 1),
  (17, 'cls_ListHeader', 'class_cls_ListHeader', 0x230001, 1, 1);

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
  (1, 0, 'modelName', 11, 1, 0),
  (1, 1, 'instanceTable', 15, 0x220018, 0);
-- ddr_ExtensionTable
INSERT INTO ddr_attribute VALUES
  (4, 0, 'map', 15, 0x230002, 2);
-- mat_Extension
INSERT INTO ddr_attribute VALUES
  (6, 0, 'text', 11, 1, 0);
-- sec_Extension
INSERT INTO ddr_attribute VALUES
  (7, 0, 'text', 11, 1, 0);
-- kprC_Connectors
INSERT INTO ddr_attribute VALUES
  (8, 0, 'connPropCont', 15, 0x230002, 2);
-- kprC_ConnectorProperty
INSERT INTO ddr_attribute VALUES
  (9, 0, 'assmType', 11, 1, 0),
  (9, 1, 'rotType', 11, 1, 0),
  (9, 2, 'transType', 11, 1, 0),
  (9, 3, 'integrationMethod', 11, 1, 0),
  (9, 4, 'u1ReferenceLength', 7, 1, 0),
  (9, 5, 'u2ReferenceLength', 7, 1, 0),
  (9, 6, 'u3ReferenceLength', 7, 1, 0),
  (9, 7, 'ur1ReferenceAngle', 7, 1, 0),
  (9, 8, 'ur2ReferenceAngle', 7, 1, 0),
  (9, 9, 'ur3ReferenceAngle', 7, 1, 0);
-- odiK_Thing
INSERT INTO ddr_attribute VALUES
  (10, 0, 'label', 11, 1, 0);
-- odiK_Note
INSERT INTO ddr_attribute VALUES
  (11, 0, 'title', 11, 1, 0),
  (11, 1, 'amount', 7, 1, 0),
  (11, 2, 'count', 5, 1, 0),
  (11, 3, 'checked', 13, 1, 0),
  (11, 4, 'about', 15, 0x2a50010, 0),
  (11, 5, 'parts', 15, 0x230002, 2),
  (11, 6, 'raw', 99, 1, 0);
-- odiK_Unused
INSERT INTO ddr_attribute VALUES
  (12, 0, 'value', 7, 1, 0);
-- cls_MapHeader
INSERT INTO ddr_attribute VALUES
  (13, 0, 'Target#Handle', 9, 1, 0);
-- cls_ListObj
INSERT INTO ddr_attribute VALUES
  (14, 0, 'Target#Handle', 9, 1, 0);
-- dia_DiagnosticData
INSERT INTO ddr_attribute VALUES
  (15, 0, 'messages', 15, 0x210001, 1);
-- dia_Message
INSERT INTO ddr_attribute VALUES
  (16, 0, 'time', 5, 1, 0),
  (16, 1, 'severity', 5, 1, 0),
  (16, 2, 'text', 11, 1, 0);
-- cls_ListHeader
INSERT INTO ddr_attribute VALUES
  (17, 0, 'Target#Handle', 9, 1, 0);

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
  (12, 0, 'connector', 0x2ac0001, 0),
  (12, 1, 'material', 0x238007d, 0),
  (13, 0, 'section', 0x260003b, 0),
  (13, 1, 'connector', 0x2ac0001, 1),
  (14, 0, 'material', 0x238007d, 1),
  (15, 0, 'hinge', 0x2ac0003, 2),
  (15, 1, 'beam', 0x2ac0003, 0),
  (15, 2, 'axial', 0x2ac0003, 1),
  (16, 0, 'weld', 0x2ac0003, 3),
  (17, 0, 'b', 0x2a50010, 0),
  (17, 4, 'a', 0x2a50010, 0);

CREATE TABLE "class_ddr_Ddb"("row" INTEGER PRIMARY KEY, "#uid" BLOB, "models#ClassID" INTEGER,
  "models#OID" INTEGER, "results#ClassID" INTEGER, "results#OID" INTEGER, "userData#ClassID" INTEGER,
  "userData#OID" INTEGER, "diagnosticData#ClassID" INTEGER, "diagnosticData#OID" INTEGER, "name",
  "modifyTime", "creationTime", "analysisVersion", "sequenceData", "onlyHasUserDefinedData", "description",
  "ddbVersion", "productAddOns#ClassID" INTEGER, "productAddOns#OID" INTEGER);
INSERT INTO "class_ddr_Ddb" VALUES
  (0, X'00000ddb000000000022000600000000', 0x230002, 3, 0x230002, 4, 0x230002, 5, 0x210001, 1,
   '2000/02/29 00:00:00 model_401.ddr', 951786000, 951782400, 'Release 848-1', '2000_02_29-00.00.01 17000',
   0, 'Wing', 891, 0x230001, 0),
  (1, X'00000ddb000000000022000600000001', 0x230002, 0, 0x230002, 1, 0x230002, 2, 0x210001, 2,
   '2000/02/29 00:00:00 model_401.ddr', 951868800, 951782400, 'Release 848-2', '2000_02_29-00.00.02 17000',
   1, 'Wing, second load case', 891, 0x230001, 1);

CREATE TABLE "class_ddr_Model"("row" INTEGER PRIMARY KEY, "#uid" BLOB, "modelName",
  "instanceTable#ClassID" INTEGER, "instanceTable#OID" INTEGER);
INSERT INTO "class_ddr_Model" VALUES
  (0, X'00000ddb000000000022000700000000', 'Beam', 0x220018, 0),
  (1, X'00000ddb000000000022000700000001', 'Plate', 0x220018, 1),
  (3, X'00000ddb000000000022000700000003', 'Wing · 翼', 0x220018, 2);

CREATE TABLE "class_ddr_Result"("row" INTEGER PRIMARY KEY, "#uid" BLOB);
INSERT INTO "class_ddr_Result" VALUES
  (0, X'00000ddb000000000022000100000000'),
  (1, X'00000ddb000000000022000100000001');

CREATE TABLE "class_ddr_UserData"("row" INTEGER PRIMARY KEY, "#uid" BLOB);
INSERT INTO "class_ddr_UserData" VALUES
  (0, X'00000ddb000000000022001000000000');

CREATE TABLE "class_ddr_ExtensionTable"("row" INTEGER PRIMARY KEY, "#uid" BLOB, "map#ClassID" INTEGER,
  "map#OID" INTEGER);
INSERT INTO "class_ddr_ExtensionTable" VALUES
  (0, X'00000ddb000000000022001800000000', 0x230002, 6),
  (1, X'00000ddb000000000022001800000001', 0x230002, 7),
  (2, X'00000ddb000000000022001800000002', 0x230002, 8);

CREATE TABLE "class_mat_Extension"("row" INTEGER PRIMARY KEY, "#uid" BLOB, "##BaseClassOID", "text");
INSERT INTO "class_mat_Extension" VALUES
  (0, X'00000ddb000000000238007d00000000', -1, 'steel'),
  (1, X'00000ddb000000000238007d00000001', -1, 'wood');

CREATE TABLE "class_sec_Extension"("row" INTEGER PRIMARY KEY, "#uid" BLOB, "##BaseClassOID", "text");
INSERT INTO "class_sec_Extension" VALUES
  (0, X'00000ddb000000000260003b00000000', -1, 'box');

CREATE TABLE "class_kprC_Connectors"("row" INTEGER PRIMARY KEY, "#uid" BLOB, "connPropCont#ClassID" INTEGER,
  "connPropCont#OID" INTEGER);
INSERT INTO "class_kprC_Connectors" VALUES
  (0, X'00000ddb0000000002ac000100000000', 0x230002, 9),
  (1, X'00000ddb0000000002ac000100000001', 0x230002, 10);

CREATE TABLE "class_kprC_ConnectorProperty"("row" INTEGER PRIMARY KEY, "#uid" BLOB, "assmType", "rotType",
  "transType", "integrationMethod", "u1ReferenceLength", "u2ReferenceLength", "u3ReferenceLength",
  "ur1ReferenceAngle", "ur2ReferenceAngle", "ur3ReferenceAngle");
INSERT INTO "class_kprC_ConnectorProperty" VALUES
  (0, X'00000ddb0000000002ac000300000000', 'BEAM', 'ROTATION', 'LINK', 'IMPLICIT', 0.5, -0.25, 1e+300,
   5e-324, -1e-300, 3.141592653589793),
  (1, X'00000ddb0000000002ac000300000001', 'NONE', 'PROJ_FLEX_TORS', 'PROJ_CARTESIAN', 'UNSET',
   -1.7976931348623157e+308, -1.7976931348623157e+308, -1.7976931348623157e+308, -1.7976931348623157e+308,
   -1.7976931348623157e+308, -1.7976931348623157e+308),
  (2, X'00000ddb0000000002ac000300000002', 'HINGE', 'PROJECTION', 'CARTESIAN', NULL, NULL, 0.0, NULL, 1.0,
   NULL, 2.0),
  (3, X'00000ddb0000000002ac000300000003', 'WELD', 'ALIGN', 'JOIN', 'EXPLICIT', 1.7976931348623157e+308,
   -1.7976931348623157e+308, 2.5, 3.5, 4.5, 5.5);

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
   0x230002, 11, 'kept as it is');

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
  (8, X'00000ddb000000000023000200000008', 14),
  (9, X'00000ddb000000000023000200000009', 15),
  (10, X'00000ddb00000000002300020000000a', 16),
  (11, X'00000ddb00000000002300020000000b', 17);

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
CREATE INDEX "class_ddr_ExtensionTable#uid" ON "class_ddr_ExtensionTable"("#uid");
CREATE INDEX "class_mat_Extension#uid" ON "class_mat_Extension"("#uid");
CREATE INDEX "class_sec_Extension#uid" ON "class_sec_Extension"("#uid");
CREATE INDEX "class_kprC_Connectors#uid" ON "class_kprC_Connectors"("#uid");
CREATE INDEX "class_kprC_ConnectorProperty#uid" ON "class_kprC_ConnectorProperty"("#uid");
CREATE INDEX "class_odiK_Thing#uid" ON "class_odiK_Thing"("#uid");
CREATE INDEX "class_odiK_Note#uid" ON "class_odiK_Note"("#uid");
CREATE INDEX "class_cls_MapHeader#uid" ON "class_cls_MapHeader"("#uid");
CREATE INDEX "class_cls_ListObj#uid" ON "class_cls_ListObj"("#uid");
CREATE INDEX "class_dia_DiagnosticData#uid" ON "class_dia_DiagnosticData"("#uid");
CREATE INDEX "class_dia_Message#uid" ON "class_dia_Message"("#uid");
CREATE INDEX "class_cls_ListHeader#uid" ON "class_cls_ListHeader"("#uid");
CREATE INDEX ddr_entry_key ON ddr_entry(handle, Key);
COMMIT;
